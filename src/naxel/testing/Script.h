#pragma once

/// Scripts of one event per line, and making them short.

#include <functional>
#include <istream>
#include <string>
#include <vector>

namespace Naxel::Testing {

using Script = std::vector<std::string>;

/// The scripts of a file, one event per line; empty lines and comments behind a # at the start of a line
/// are left out, as are blanks before an event, and a line of three dashes begins another script.
std::vector<Script> scriptsOf(std::istream& in);
std::string textOf(Script const& script);

/// Takes out of a failing script what it fails without: lines, halves first. Calls `fails` some hundred times.
Script shrunk(Script best, std::function<bool(Script const&)> const& fails);
/// And words of its rules, one part of a filter at a time.
Script simplified(Script best, std::function<bool(Script const&)> const& fails);

}  // namespace Naxel::Testing
