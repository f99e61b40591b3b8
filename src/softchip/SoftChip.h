#pragma once

/// A switch chip in software: it takes the driver's side of the exchange between PDConfig and
/// PDStatus, and looks packets up in what has been loaded.
///
/// Banks. Where the output in force and the new one fit into every table side by side, the new one
/// is written into a second bank and one write switches over: the change is hitless. Where only the
/// new one fits, it is hitful: the chip expects a policy to stand, clears the tables and writes the
/// new ones in place. Where a table cannot hold the new output by itself, its acquire fails, and
/// shortfalls() says by how much.
///
/// Order. Requests are worked off first come, first served, one step at a time; a step may wait for some
/// ticks of the timer. A new acquire throws away what is left of an earlier acquire or revert, and what an
/// earlier one has reserved; a load is always finished. Each status is a single write, and the library may
/// react within it with the next request, which is then worked off before that write returns.
///
/// Conduct of the library. breaches() collects what the library must not do: load what was not
/// acquired, rewrite the tables without a policy where that disturbs traffic, change a policy that
/// is not confirmed, offer an output that does not fit the key layout. The chip goes on regardless.
///
/// A chip that is built over a PDConfig in use takes over: it holds the output that should be in
/// force and works off a request that has not been answered and a policy change that has not been
/// confirmed. With `Options::bootPolicy` it starts closed, or open, and otherwise stays so until the
/// library asks for something new.

#include "naxel/loader/PDConfig.h"
#include "obel/TimerWheel.h"
#include "softchip/LoadedTables.h"
#include "softchip/Table.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace SoftChip {

using Verify::KeyLayout;
using Verify::Labels;
using Verify::MissYields;
using Verify::Packet;
using Verify::Verdict;

enum class Pace : uint8_t { together, oneByOne };
enum class AnswerOrder : uint8_t { standard, reversed, prefixTablesLast };
/// Whether the table for TCP flags is answered for: in turn, behind every other answer, or not at
/// all. "Last" waits even for the answers to requests that came meanwhile.
enum class TcpFlagsAnswer : uint8_t { inTurn, last, never };

struct Options {
  /// Ticks between a request and its first answer; 0 answers from within the write.
  uint32_t answerAfterTicks = 0;
  /// Answers of one request in the same tick, or one per tick.
  Pace pace = Pace::together;
  AnswerOrder order = AnswerOrder::standard;
  TcpFlagsAnswer tcpFlags = TcpFlagsAnswer::inTurn;
  /// Send what is left of the answers to a superseded request, with its own id, instead of dropping
  /// it.
  bool staleAnswers = false;
  /// Ticks until a policy is in force and confirmed; 0 confirms from within the write.
  uint32_t confirmPolicyAfterTicks = 0;
  /// What becomes of a policy change that is not confirmed when the library takes it back: it is dropped,
  /// or carried out and confirmed first. A load waits for that.
  bool finishesSuperseded = false;
  /// Put in force and reported when the chip starts, whatever stands in PDConfig.
  std::optional<Naxel::GlobalAclControl> bootPolicy;
  /// Entries that each table holds, both banks together.
  PerTable<size_t> capacity{~size_t{0}};
  /// Make every change in place.
  bool forceHitful = false;
  /// The table that refuses the next `refuseAcquires` acquires, whatever its capacity.
  Table refuseTable = Table::aclEntries;
  uint32_t refuseAcquires = 0;
  MissYields missYields = MissYields::nothing;
};

/// A table that could not take an output.
struct Shortfall {
  Table table;
  size_t needed;
  size_t available;
  /// The options have it refused, whatever its room.
  bool ordered = false;
};
/// "srcPort: 12 entries needed, 8 available", "srcPort: refused by order of the chip's options".
std::string text(Shortfall const& shortfall);

/// One write of the chip, into its tables or into a status.
struct Write {
  enum class Kind : uint8_t {
    standbyTable,  ///< one table of the second bank
    switched,      ///< the second bank is in force
    cleared,       ///< the tables are being rewritten in place
    tableInPlace,  ///< one of them
    rewritten,     ///< they are in force again
    policy,        ///< another policy, or none, is in force
    policyStatus,  ///< and PDStatus says so
    answer         ///< the status of one table
  };
  Kind kind;
  Table table = Table::v4Source;  ///< for standbyTable, tableInPlace and answer
};

class Chip {
 public:
  /// Works off what stands in `config`. Without a wheel the owner calls tick().
  Chip(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
       Mox::Ptr<Obel::TimerWheel> wheel = nullptr, Options options = {});
  Chip(Chip const&) = delete;
  Chip& operator=(Chip const&) = delete;
  ~Chip();

  /// May be changed at any time; a step that waits already keeps its delay.
  Options& options() { return options_; }
  /// Called after every single write, with the state that packets in flight would meet.
  void observerIs(std::function<void(Write const&)> observer) { observer_ = std::move(observer); }

  /// One pass of the timer. The wheel calls it where there is one.
  void tick();
  /// True if nothing waits for a tick.
  bool idle() const { return steps_.empty() && !policyPending_; }

  /// The output in force; null before the first load.
  /// Null also while the tables are being rewritten.
  Mox::Ptr<Naxel::PDData const> inForce() const { return bank_ ? bank_->data() : nullptr; }
  Naxel::GlobalAclControl policy() const { return policy_; }
  /// The id of the acquire whose resources are kept until its load is requested; 0 while none are.
  Mox::Seconds reservedFor() const { return acquired_ && !isLoading() ? acquired_->id : 0; }
  /// The tables in force; null before the first load and while they are being rewritten.
  LoadedTables* tables() { return bank_.get(); }

  /// What the chip does with the packet; counts the hit.
  Verdict lookup(Naxel::PDAclKey const& acl, Packet const& packet);
  /// The match key of the packet; empty while there are no tables.
  Labels labelsOf(Packet const& packet) const { return bank_ ? bank_->labelsOf(packet) : Labels(); }
  /// Hits of an entry since the load.
  uint64_t hits(Naxel::PDAclKey const& acl, Naxel::AceIndex rule, uint32_t entry) const {
    return bank_ ? bank_->hits(acl, rule, entry) : 0;
  }

  /// The tables that failed in the last acquire.
  std::vector<Shortfall> const& shortfalls() const { return shortfalls_; }
  /// What the library has done and must not do, a sentence each, at most 100; empty as long as it keeps the
  /// contract.
  std::vector<std::string> const& breaches() const { return breaches_; }

 private:
  class ConfigWatcher : public Naxel::PDConfig::Notifiee {
   public:
    ConfigWatcher(Chip& chip, Naxel::PDConfig* config) : chip_(chip) { notifierIs(config); }
    void onPdResourceConfig() override { chip_.handleRequest(); }
    void onGlobalAclControl() override { chip_.handlePolicy(); }

   private:
    Chip& chip_;
  };
  class Ticker : public Obel::TimerNotifiee {
   public:
    Ticker(Chip& chip, Mox::Ptr<Obel::TimerWheel> wheel)
        : TimerNotifiee(std::move(wheel)), chip_(chip) {}
    void handleExpiry() override { chip_.tick(); }

   private:
    Chip& chip_;
  };

  /// An output that was offered with a request, and the layout that it was compiled for.
  struct Offer {
    Mox::Ptr<Naxel::PDData const> data;
    KeyLayout layout;
  };
  struct Step {
    enum class What : uint8_t { decide, beginLoad, finishLoad, restore, answer };
    What what;
    Naxel::ResourceConfig request;
    uint32_t ticks = 0;  // to wait once the step is the first one
    Offer offer = {};
    Table table = Table::v4Source;                                  // answer
    Naxel::ResponseState response = Naxel::ResponseState::hitless;  // answer
  };
  struct Acquired {
    Mox::Seconds id;
    Offer offer;
    bool hitless;
  };

  void takeOver();
  bool isLoading() const;
  bool isAnswered(Naxel::ResourceConfig const& request) const;
  void handleRequest();
  void supersede();
  void handlePolicy();
  void pendPolicy(Naxel::GlobalAclControl wanted);
  void confirmPolicy();
  void pump();
  void sendTcpFlagsAnswers();
  void run(Step const& step);
  void decide(Step const& step);
  bool fitsBeside(Naxel::PDData const& data) const;
  void beginLoad(Step const& step);
  void finishLoad(Step const& step);
  void restore(Step const& step);
  void switchTo(Offer const& offer);
  void answerAll(Naxel::ResourceConfig const& request,
                 std::function<Naxel::ResponseState(Table)> const& response);
  std::vector<Table> answerOrder() const;
  bool hasShortfall(Table table) const;
  void breach(std::string sentence);
  void written(Write const& write) const {
    if (observer_) observer_(write);
  }
  void armTimer();

  Mox::Ptr<Naxel::PDConfig> config_;
  Mox::Ptr<Naxel::PDStatus> status_;
  Options options_;
  std::function<void(Write const&)> observer_;

  std::unique_ptr<LoadedTables> bank_;
  bool rewriting_ = false;
  Naxel::GlobalAclControl policy_;
  bool policyPending_ = false;
  Naxel::GlobalAclControl policyWanted_ = Naxel::GlobalAclControl::doNotApply;  // the pending one
  bool policyTakenBack_ = false;  // and is carried out all the same
  bool loadsWait_ = false;        // for what stands in PDConfig behind that
  uint32_t policyTicks_ = 0;

  std::deque<Step> steps_;
  std::deque<Naxel::ResourceStatus> tcpFlagsAnswers_;  // those that wait for the end
  unsigned pumping_ = 0;
  std::unique_ptr<Acquired> acquired_;
  std::vector<Shortfall> shortfalls_;
  std::vector<std::string> breaches_;

  std::unique_ptr<Ticker> ticker_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  ConfigWatcher watcher_;  // last: nothing arrives before everything else is there
};

}  // namespace SoftChip
