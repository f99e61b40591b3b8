#pragma once

/// The rules that the benchmarks compile, as text from which a configuration can be built anew for
/// every sample.

#include "input/RuleSet.h"

#include <memory>
#include <string>
#include <vector>

namespace Bench {

struct RuleSource {
  std::string name;
  /// A ClassBench filter set or one of our JSON files.
  std::shared_ptr<std::string const> text;
  size_t rules = 0;
};

/// A file of either kind, plain or gzip.
RuleSource fileSource(std::string const& path);
/// The ClassBench sets of a folder, plain or gzip, by number of rules and name. Files of another kind
/// are passed over. Sets of about 60,000 rules and more follow in pieces besides, the first 1,000 to
/// 60,000 rules of each, named NAME:SIZE.
std::vector<RuleSource> folderSources(std::string const& folder);
/// Sets of the generator, of each style and of 1,000 to 60,000 rules, named STYLE:SIZE.
std::vector<RuleSource> generatedSources();
/// Sets of 10,000 rules over lists that cross: at random, and by attributes of hosts.
std::vector<RuleSource> crossingSources();
/// What the benchmarks compile: the sets of the folder that the variable NAXEL_BENCH_SETS names, or
/// those of the generator.
std::vector<RuleSource> allSources();

/// A fresh configuration for chip 0.
Mox::Ptr<Naxel::AclConfigColl> build(RuleSource const& source);

}  // namespace Bench
