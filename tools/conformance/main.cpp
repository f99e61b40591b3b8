/// naxel-conformance: proves the driver of a shared object, or shows the kit at work on the chip in software.

#include "naxel/testing/Script.h"
#include "softchip/UnderTest.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <stdexcept>

namespace {

using namespace Naxel::Testing;

constexpr char usage[] =
    "usage: naxel-conformance [OPTION...] [DRIVER.so]\n"
    "Plays the library against a driver and tells which rules of the driver guide it breaks.\n"
    "\n"
    "  DRIVER.so         defines naxelDriverUnderTest(); without it the chip in software is tried\n"
    "  --chip NAME       that chip as roomy (default), hitful, small, slow or closed\n"
    "  --seed N          of the first random script, 1 by default\n"
    "  --scripts N       how many random scripts, 150 by default\n"
    "  --seconds N       as many as fit into so many seconds\n"
    "  --breaches N      stop after so many rules are broken, 3 by default\n"
    "  --patience N      seconds without any answer after which none is expected, 60 by default\n"
    "  --passes N        the same in passes of the activity, 100000 by default\n"
    "  --own-policies    the driver puts policies of its own in force at any time\n"
    "  --traces          write what library and driver trace\n"
    "  --script FILE     play this script alone, one event per line\n"
    "  --rules           print the rules\n"
    "\n"
    "Exit codes: 0 no rule is broken, 1 some are, 2 the call is wrong.\n";

struct Call {
  Options options;
  std::string chip = "roomy";
  std::string driver;
  std::string script;
  bool help = false;
  bool rules = false;
};

uint64_t number(std::string const& option, std::string const& text) {
  if (text.empty() || text.size() > 15 || text.find_first_not_of("0123456789") != text.npos)
    throw std::invalid_argument(option + " takes a number, not '" + text + "'");
  return std::stoull(text);
}

Call callOf(int argc, char** argv) {
  Call call;
  for (int i = 1; i < argc; ++i) {
    std::string const word = argv[i];
    auto const value = [&]() -> std::string {
      if (++i == argc) throw std::invalid_argument(word + " takes a value");
      return argv[i];
    };
    if (word == "--help" || word == "-h")
      call.help = true;
    else if (word == "--rules")
      call.rules = true;
    else if (word == "--own-policies")
      call.options.ownPolicies = true;
    else if (word == "--traces")
      call.options.traces = true;
    else if (word == "--chip")
      call.chip = value();
    else if (word == "--script")
      call.script = value();
    else if (word == "--seed")
      call.options.seed = number(word, value());
    else if (word == "--scripts")
      call.options.scripts = number(word, value());
    else if (word == "--seconds")
      call.options.seconds = static_cast<double>(number(word, value()));
    else if (word == "--patience")
      call.options.patience = static_cast<Mox::Seconds>(number(word, value()));
    else if (word == "--passes")
      call.options.passes = number(word, value());
    else if (word == "--breaches")
      call.options.breaches = number(word, value());
    else if (word.starts_with("-") || !call.driver.empty())
      throw std::invalid_argument("unknown argument '" + word + "'");
    else
      call.driver = word;
  }
  return call;
}

DriverMaker makerOf(Call const& call) {
  if (call.driver.empty())
    return [options = SoftChip::optionsNamed(call.chip)] {
      return std::make_unique<SoftChip::UnderTest>(options);
    };
  // A name without a slash would be searched for among the system's libraries.
  std::string const path =
      call.driver.find('/') == std::string::npos ? "./" + call.driver : call.driver;
  void* const object = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!object) throw std::invalid_argument(dlerror());
  void* const symbol = dlsym(object, "naxelDriverUnderTest");
  if (!symbol) throw std::invalid_argument(call.driver + " does not define naxelDriverUnderTest()");
  decltype(&naxelDriverUnderTest) make = nullptr;
  std::memcpy(&make, &symbol, sizeof make);
  return [make] { return std::unique_ptr<DriverUnderTest>(make()); };
}

int run(Call const& call) {
  if (call.help) return std::fputs(usage, stdout) < 0;
  if (call.rules) {
    for (RuleText const& rule : allRules)
      std::printf("%-20s %s\n", std::string(rule.name).c_str(), std::string(rule.demands).c_str());
    return 0;
  }
  DriverMaker const make = makerOf(call);
  Report report;
  if (call.script.empty()) {
    report = proveDriver(make, call.options);
  } else {
    std::ifstream in(call.script);
    if (!in) throw std::invalid_argument(call.script + " cannot be read");
    for (Script const& script : scriptsOf(in)) {
      report = replay(make, script, call.options);
      if (!report.passed()) break;
    }
  }
  std::fputs(text(report).c_str(), stdout);
  return report.passed() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(callOf(argc, argv));
  } catch (std::invalid_argument const& e) {
    std::fprintf(stderr, "naxel-conformance: %s\n", e.what());
    return 2;
  }
}
