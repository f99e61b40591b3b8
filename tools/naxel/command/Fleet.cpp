#include "command/Fleet.h"

#include "command/ChildRun.h"
#include "command/Devices.h"
#include "command/FleetLine.h"
#include "command/FleetLog.h"
#include "command/Options.h"
#include "output/OutputFile.h"
#include "output/RuleJson.h"
#include "output/Signals.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <thread>

namespace NaxelTool {

namespace {

/// A result that is larger is an error, and of messages no more is kept.
constexpr ChildRun::Limits limits = {size_t{64} << 20, size_t{1} << 20};
/// Finished lines that wait for an earlier one, in bytes, before no more is started.
constexpr size_t waitingBytes = size_t{64} << 20;

std::vector<std::string> positionals(CLI::App const& app) {
  std::vector<std::string> out;
  for (CLI::Option const* option : app.get_options())
    if (option->get_positional())
      for (std::string const& value : option->results()) out.push_back(value);
  return out;
}

/// The names of the options of addFleetOptions(), with which a process has nothing to do.
bool isOfFleets(CLI::Option const& option) {
  auto const& names = option.get_lnames();
  return std::any_of(names.begin(), names.end(), [](std::string const& name) {
    return name == "jobs" || name == "timeout" || name == "resume";
  });
}

/// The command and its options as they were given, and --json.
std::vector<std::string> sharedArguments(CLI::App const& app) {
  std::vector<std::string> out = {app.get_name(), "--json"};
  for (CLI::Option const* option : app.get_options()) {
    if (option->get_positional() || option->count() == 0 || isOfFleets(*option)) continue;
    std::string const name = "--" + option->get_lnames().front();
    if (name == "--json") continue;
    if (option->get_expected_max() == 0)
      out.push_back(name);
    else
      for (std::string const& value : option->results()) {
        out.push_back(name + "=");
        out.back() += value;
      }
  }
  return out;
}

/// What no process of a fleet can do.
void checkOptions(CLI::App const& app) {
  for (CLI::Option const* option : app.get_options()) {
    if (option->count() == 0) continue;
    std::string const name = option->get_positional() ? "" : option->get_lnames().front();
    if (name == "output" || name == "dump")
      throw std::invalid_argument("--" + name + " names one file, and a folder has many");
    auto const& values = option->results();
    if (std::find(values.begin(), values.end(), "-") != values.end())
      throw std::invalid_argument("standard input cannot be read for each file of a folder");
  }
}

class Fleet {
 public:
  Fleet(CLI::App const& app, FleetOptions const& options, CommandInfo const& info, Console& console)
      : options_(options),
        info_(info),
        console_(console),
        shared_(sharedArguments(app)),
        devices_(devicesOf(positionals(app), info.pairs, passedOver_)),
        jobs_(options.jobs ? options.jobs : std::max(1u, std::thread::hardware_concurrency())) {
    leaveOutLog();
    if (devices_.empty()) throw std::invalid_argument("there are no files below the folder");
    std::vector<std::string> files;
    for (Device const& device : devices_)
      files.insert(files.end(), device.files.begin(), device.files.end());
    refuseInputs("-", files);
    if (!options.log.empty()) log_.emplace(options.log, head(app));
  }

  ExitCode run() {
    int signal = 0;
    {
      SignalsNoted const signals;
      console_.progress().stepIs("devices", devices_.size());
      while (printed_ < devices_.size() && !SignalsNoted::number()) {
        startMore(signals.waitMask());
        if (!running_.empty()) waitForMore(signals.waitMask());
        printReady();
      }
      signal = SignalsNoted::number();
      running_.clear();
    }
    if (signal) raise(signal);
    saySummary();
    // That others have none must not hide the one that has such a packet.
    bool const isFound = info_.looksForPackets && fine_ && fine_ + findings_ == devices_.size();
    return isFound ? ExitCode::success : static_cast<ExitCode>(worst_);
  }

 private:
  struct Running {
    size_t device;
    std::string stamp;
    std::unique_ptr<ChildRun> child;
    bool late = false;
  };
  /// A line that is printed in its turn; it stands in the log where it was found there.
  struct Finished {
    int code;
    std::string line;
    std::optional<FleetLog::Found> found;
  };

  static std::vector<Device> devicesOf(std::vector<std::string> const& paths, bool pairs,
                                       size_t& passedOver) {
    if (!pairs) return devicesBelow(paths, passedOver);
    if (paths.size() != 2 || !isFolder(paths[0]) || !isFolder(paths[1]))
      throw std::invalid_argument("a folder is compared with a folder");
    return devicePairs(paths[0], paths[1], passedOver);
  }

  /// The log may stand below the folder.
  void leaveOutLog() {
    std::string const log = options_.log.empty() ? std::string() : stampOf({options_.log});
    if (log.empty()) return;
    std::erase_if(devices_, [&](Device const& d) {
      return std::any_of(d.files.begin(), d.files.end(),
                         [&](std::string const& file) { return stampOf({file}) == log; });
    });
  }

  std::string head(CLI::App const& app) const {
    std::string out = R"({"log":"naxel-fleet","version":1,"naxel":)" + jsonText(NAXEL_VERSION) +
                      ",\"program\":" + jsonText(stampOf({"/proc/self/exe"})) + ",\"command\":[";
    char const* comma = "";
    auto const add = [&](std::string const& word) {
      out += comma + jsonText(word);
      comma = ",";
    };
    for (std::string const& word : shared_) add(word);
    for (std::string const& path : positionals(app)) add(path);
    out += "],\"inputs\":[";
    comma = "";
    for (CLI::Option const* option : app.get_options())
      if (!option->get_positional() && !isOfFleets(*option))
        for (std::string const& value : option->results())
          if (option->get_type_name() == "FILE") add(value + " " + stampOf({value}));
    return out + "]}";
  }

  void startMore(sigset_t const& mask) {
    while (started_ < devices_.size() && running_.size() < jobs_ &&
           (waiting_ < waitingBytes || started_ == printed_)) {
      size_t const at = started_++;
      Device const& device = devices_[at];
      if (!device.trouble.empty()) {
        finish(at, static_cast<int>(device.code),
               troubleLine(device.name, device.code, device.trouble));
        continue;
      }
      std::string const stamp = log_ ? stampOf(device.files) : std::string();
      if (auto const found = log_ ? log_->find(device.name, stamp) : std::nullopt) {
        ++resumed_;
        finished_.emplace(at, Finished{found->code, {}, found});
        continue;
      }
      std::vector<std::string> arguments = shared_;
      arguments.emplace_back("--");
      arguments.insert(arguments.end(), device.files.begin(), device.files.end());
      try {
        running_.push_back({at, stamp, std::make_unique<ChildRun>(arguments, limits, mask)});
      } catch (std::system_error const& e) {
        // With fewer at a time there may be room.
        if (!running_.empty()) {
          --started_;
          return;
        }
        finish(at, static_cast<int>(ExitCode::internal),
               troubleLine(device.name, ExitCode::internal, e.what()));
      }
    }
  }

  /// Until something can be read, a process is late or a signal comes.
  void waitForMore(sigset_t const& mask) {
    std::vector<pollfd> polled;
    for (Running const& r : running_)
      for (size_t const stream : {0, 1}) polled.push_back({r.child->descriptor(stream), POLLIN, 0});
    timespec const wait = untilNextIsLate();
    int const ready =
        ppoll(polled.data(), polled.size(), options_.timeout ? &wait : nullptr, &mask);
    if (ready < 0) return;
    for (size_t i = 0; i < running_.size(); ++i)
      for (size_t const stream : {0, 1})
        if (polled[2 * i + stream].revents) running_[i].child->read(stream);
    endLate();
    for (size_t i = 0; i < running_.size();) {
      if (!running_[i].child->hasEnded() && !running_[i].child->isCut()) {
        ++i;
        continue;
      }
      finish(running_[i]);
      running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }

  std::chrono::steady_clock::time_point deadline(Running const& r) const {
    return r.child->start() + std::chrono::seconds(options_.timeout);
  }
  timespec untilNextIsLate() const {
    auto next = std::chrono::steady_clock::now() + std::chrono::hours(1);
    for (Running const& r : running_)
      if (!r.late) next = std::min(next, deadline(r));
    auto const left = std::max(std::chrono::nanoseconds(0),
                               std::chrono::nanoseconds(next - std::chrono::steady_clock::now()));
    return {static_cast<time_t>(left.count() / 1000000000),
            static_cast<long>(left.count() % 1000000000)};
  }
  void endLate() {
    if (!options_.timeout) return;
    for (Running& r : running_)
      if (!r.late && deadline(r) <= std::chrono::steady_clock::now()) {
        r.late = true;
        r.child->kill();
      }
  }

  void finish(Running& r) {
    Device const& device = devices_[r.device];
    bool const cut = r.child->isCut();
    if (cut) r.child->kill();
    int const status = r.child->wait();
    std::string trouble;
    if (r.late)
      trouble = "took longer than " + std::to_string(options_.timeout) + " s, and was ended";
    else if (cut)
      trouble = "has a result of more than " + std::to_string(limits.out >> 20) + " MiB";
    else if (WIFSIGNALED(status))
      trouble = "was ended by " + signalName(WTERMSIG(status));
    else if (!isExitCode(WEXITSTATUS(status)))
      trouble = "could not be run: exit code " + std::to_string(WEXITSTATUS(status));
    bool const byItself = trouble.empty() && WIFEXITED(status);
    int const code = byItself ? WEXITSTATUS(status) : static_cast<int>(ExitCode::internal);
    std::string line = deviceLine(device.name, code, byItself ? r.child->out() : std::string(),
                                  r.child->err(), trouble);
    // What may go well another time is tried again.
    bool const isLasting = byItself && code != static_cast<int>(ExitCode::internal) &&
                           code != static_cast<int>(ExitCode::device);
    if (log_ && isLasting && !r.stamp.empty()) log_->append(device.name, r.stamp, code, line);
    finish(r.device, code, std::move(line));
  }
  void finish(size_t device, int code, std::string line) {
    waiting_ += line.size();
    finished_.emplace(device, Finished{code, std::move(line), std::nullopt});
  }

  void printReady() {
    for (auto at = finished_.begin(); at != finished_.end() && at->first == printed_;
         at = finished_.erase(at), ++printed_) {
      Finished const& f = at->second;
      console_.out() << (f.found ? log_->line(*f.found) : f.line) << '\n';
      waiting_ -= f.line.size();
      worst_ = std::max(worst_, f.code);
      fine_ += f.code == static_cast<int>(ExitCode::success);
      findings_ += f.code == static_cast<int>(ExitCode::findings);
      console_.progress().doneIs(printed_ + 1);
    }
    console_.out().flush();
  }

  void saySummary() {
    size_t const all = devices_.size();
    bool const looks = info_.looksForPackets;
    std::string text = std::to_string(all) + (all == 1 ? " device: " : " devices: ") +
                       std::to_string(fine_) + (looks ? " with such a packet, " : " fine, ") +
                       std::to_string(findings_) + (looks ? " without, " : " with findings, ") +
                       std::to_string(all - fine_ - findings_) + " with errors";
    if (log_) text += "; " + std::to_string(resumed_) + " of them were known";
    if (passedOver_)
      text += "; passed over: " + std::to_string(passedOver_) +
              (passedOver_ == 1 ? " thing that is no file" : " things that are no files");
    console_.note("fleet", text);
  }

  FleetOptions const& options_;
  CommandInfo const& info_;
  Console& console_;
  size_t passedOver_ = 0;  // comes before what sets it
  std::vector<std::string> shared_;
  std::vector<Device> devices_;
  size_t jobs_;
  std::optional<FleetLog> log_;
  std::vector<Running> running_;
  std::map<size_t, Finished> finished_;
  size_t started_ = 0;
  size_t printed_ = 0;
  size_t waiting_ = 0;  // bytes in finished_
  size_t fine_ = 0;
  size_t findings_ = 0;
  size_t resumed_ = 0;
  int worst_ = 0;
};

}  // namespace

void addFleetOptions(CLI::App& app, FleetOptions& to) {
  addNumber(app, "--jobs", to.jobs, 1, 1024,
            "Folders: how many files at a time\n"
            "By default as many as there are processors.")
      ->default_str("");
  addNumber(app, "--timeout", to.timeout, 1, 1000000, "Folders: most seconds for each file")
      ->default_str("");
  addFile(app, "--resume", to.log,
          "Folders: keep finished lines here, and take them from here\n"
          "A later run with the same command line does not look again at files that have not "
          "changed since.");
}

bool isFleet(CLI::App const& command, FleetOptions const& options, bool pairs) {
  std::vector<std::string> const paths = positionals(command);
  if (std::any_of(paths.begin(), paths.end(), isFolder)) {
    if (pairs && paths.size() != 2) return false;
    checkOptions(command);
    return true;
  }
  if (options.jobs || options.timeout || !options.log.empty())
    throw std::invalid_argument("--jobs, --timeout and --resume are about folders of rule files");
  return false;
}

ExitCode runFleet(CLI::App const& command, FleetOptions const& options, CommandInfo const& info,
                  Console& console) {
  return Fleet(command, options, info, console).run();
}

}  // namespace NaxelTool
