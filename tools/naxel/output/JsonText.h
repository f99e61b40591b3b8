#pragma once

/// Parts of rules as JSON, and JSON on one line.

#include "input/Intervals.h"
#include "naxel/types/Action.h"

#include <string>

#include <nlohmann/json.hpp>

namespace NaxelTool {

/// Texts may hold any bytes: one that is not UTF-8 is taken byte by byte.
std::string jsonLine(nlohmann::ordered_json const& json);
/// A text that JSON can hold.
std::string utf8(std::string const& text);

/// A number, a text "first-last", or an array of these.
nlohmann::ordered_json valuesJson(IntervalSet const& set);
/// What is as it is without an action is left out.
nlohmann::ordered_json ruleActionJson(Naxel::NaxelActionValue const& action);

}  // namespace NaxelTool
