// agent CONFIGURATION METRICS: keeps the ACLs of several chips on one thread, around a loop of its own.
//
// SIGHUP reads the configuration anew, SIGUSR1 cancels what runs, SIGTERM and SIGINT end the agent when the
// drivers are through; the chips keep what they have. The page of metrics is a file that is replaced after each
// kick and before the end, as a node exporter's folder of text files takes it.

#include "Config.h"
#include "Metrics.h"
#include "TwoBankDriver.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace ExampleAgent {

class ChipAgent {
 public:
  ChipAgent(uint8_t id, size_t rows, Mox::Ptr<Obel::TimerWheel> const& wheel)
      : entities_(Obel::ChipId(id)),
        driver(chip_, entities_.pdConfig, entities_.pdStatus, wheel, {.tcamRows = rows}),
        pipeline(entities_, wheel) {
    pipeline.capability()->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 12);
    pipeline.params()->labelCodeIs(Acl::LabelCode::compact);
    pipeline.params()->keepLabelsIs(true);
  }

 private:
  TwoBank::Chip chip_;
  Naxel::ChipEntities entities_;

 public:
  // In this order: the driver has to be there for as long as the pipeline is.
  TwoBank::Driver driver;
  Naxel::Pipeline pipeline;
};

class Agent {
 public:
  Agent(std::string config, std::string metrics)
      : config_(std::move(config)), metrics_(std::move(metrics)) {}

  // Returns when the last signal has come and the drivers are through.
  int run() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int s : {SIGHUP, SIGUSR1, SIGTERM, SIGINT}) sigaddset(&signals, s);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::array<pollfd, 2> fds = {{{signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK), POLLIN, 0},
                                  {timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC), POLLIN, 0}}};
    if (!configure()) return 1;
    for (;;) {
      while (activity_.runPass()) {
      }
      // A driver that hangs does not keep the agent for ever: the second request to stop is final.
      if (stops_ > 1 || (stops_ == 1 && !isBusy())) break;
      arm(fds[1].fd);
      if (poll(fds.data(), fds.size(), -1) < 0) continue;
      uint64_t expirations = 0;
      if (fds[1].revents && read(fds[1].fd, &expirations, sizeof expirations) < 0) return 1;
      // All that have come, before any pass: a cancel finds the kick that was requested just before it.
      for (signalfd_siginfo info; read(fds[0].fd, &info, sizeof info) == sizeof info;)
        handleSignal(static_cast<int>(info.ssi_signo));
    }
    publish();
    for (pollfd const& fd : fds) close(fd.fd);
    std::cout << "stopped" << std::endl;
    return 0;
  }

 private:
  void handleSignal(int signal) {
    if (signal == SIGHUP) return void(configure());
    for (auto& [id, chip] : chips_) chip->pipeline.cancel();
    stops_ += signal != SIGUSR1;
  }

  // Reads the file and kicks. What cannot be taken changes nothing.
  bool configure() {
    Config config;
    try {
      config = readConfig(config_);
    } catch (std::exception const& e) {
      std::cout << e.what() << std::endl;
      return false;
    }
    std::erase_if(chips_, [&](auto const& c) { return !config.rows.contains(c.first); });
    for (auto const& [id, rows] : config.rows) {
      auto& chip = chips_[id];
      if (!chip) chip = std::make_unique<ChipAgent>(id, rows, wheel_);
      writeAcls(*chip->pipeline.acls(), config);
      chip->pipeline.kick([this, id = id](Naxel::KickResult const& result) {
        std::cout << "chip " << int(id) << ": " << result << std::endl;
        publish();
      });
    }
    return true;
  }

  bool isBusy() const {
    for (auto const& [id, chip] : chips_)
      if (chip->pipeline.isRunning() || !chip->pipeline.waitingFor().empty()) return true;
    return false;
  }

  // Wakes the loop when the library wants a pass: at once, later, or not at all.
  void arm(int timer) const {
    Mox::Seconds const wait = activity_.untilTimer();
    itimerspec when{};
    if (wait >= 0) {
      when.it_value.tv_sec = static_cast<time_t>(wait);
      // A value of 0 would disarm the timer.
      when.it_value.tv_nsec = 1 + static_cast<long>((wait - std::floor(wait)) * 999'999'998);
    }
    timerfd_settime(timer, 0, &when, nullptr);
  }

  void publish() const {
    std::vector<ChipReport> reports;
    for (auto const& [id, chip] : chips_)
      reports.push_back({&chip->pipeline, chip->driver.rowsWritten()});
    std::string const next = metrics_ + ".new";
    {
      std::ofstream out(next);
      writeMetrics(out, reports);
    }
    // Readers find the old page or the new one, never half of one.
    std::rename(next.c_str(), metrics_.c_str());
  }

  std::string config_;
  std::string metrics_;
  Mox::WallClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(activity_);
  std::map<uint8_t, std::unique_ptr<ChipAgent>> chips_;
  int stops_ = 0;
};

}  // namespace ExampleAgent

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: agent CONFIGURATION METRICS\n";
    return 2;
  }
  // A supervisor reads the number in front as how urgent the line is.
  Mox::traceSinkIs([](Mox::TraceFacility const& facility, int level, std::string const& text) {
    std::cerr << (level == 0 ? "<4>" : "<6>") << facility.name() << ": " << text << std::endl;
  });
  return ExampleAgent::Agent(argv[1], argv[2]).run();
}
