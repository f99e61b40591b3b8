#pragma once

/// The rules that the benchmarks compile, as text from which a configuration can be built anew for
/// every sample.

#include "RuleSet.h"

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
/// are passed over.
std::vector<RuleSource> folderSources(std::string const& folder);
/// What the benchmarks compile: the sets of the folder that the variable NAXEL_BENCH_SETS names.
std::vector<RuleSource> allSources();

/// The first `rules` rules of a ClassBench set under a name that says so.
RuleSource cut(RuleSource const& source, size_t rules);

/// A fresh configuration for chip 0.
Mox::Ptr<Naxel::AclConfigColl> build(RuleSource const& source);

}  // namespace Bench
