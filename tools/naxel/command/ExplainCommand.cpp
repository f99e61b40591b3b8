#include "answers/Explanation.h"
#include "answers/PacketReport.h"
#include "command/Command.h"
#include "command/RuleInput.h"
#include "packets/PacketText.h"

#include <algorithm>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// "--icmp-type" for "icmpType".
std::string optionOf(std::string_view name) {
  std::string option = "--";
  for (char const c : name) {
    if (c >= 'A' && c <= 'Z') option += '-';
    option += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return option;
}

class Explain : public Command {
 public:
  void declare(CLI::App& app) override {
    app.add_option("--packets", files_,
                   "File of packets; may be given several times\n"
                   "Lines of text, a trace of a ClassBench set, or a capture (pcap, pcapng); plain "
                   "or packed with gzip; - is standard input.")
        ->type_name("FILE")
        ->allow_extra_args(false);
    Choices<PacketFormat> formats = {{"auto", PacketFormat::automatic}};
    for (PacketFormatInfo const& f : packetFormats()) formats.emplace_back(f.name, f.format);
    addChoice(app, "--packet-format", format_, formats,
              "Format of the packets\nThe default, auto, goes by the content of each file.");
    addFlag(app, "--each", report_.each, "Show the verdict on every packet of the files");
    addFlag(app, "--all", report_.all, "Show all rules or ACLs, however many there are");
    addText(app, "--why-not", whyNot_, "RULE",
            "Say why this rule does not decide\n"
            "By its index, its name, or its place FILE:LINE, in every ACL that has such a rule; "
            "with ACL: in "
            "front in that one.");
    addText(app, "--packet", text_, "TEXT",
            "One packet, as \"tcp 10.0.0.1:1024 > 10.0.0.2:80 syn\"");
    addText(app, "--src", src_, "ADDRESS", "Source address of one packet");
    addText(app, "--dst", dst_, "ADDRESS", "Destination address of one packet");
    for (Naxel::RangeField const& field : Naxel::rangeFields)
      addNumber(
          app, optionOf(field.name),
          [this, type = field.type](uint64_t v) {
            packet_.valueIs(type, static_cast<uint16_t>(v));
            fieldIsGiven_ = true;
          },
          0, field.bound(), "Field of the packet, 0 by default");
    addText(app, "--tcp", tcp_, "FLAG,...", "TCP flags that are set, of syn, ack and rst");
    addText(app, "--acl", acl_, "NAME", "Look at this ACL only");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    checkUsage();
    if (!files_.empty()) return runFiles(console);
    Verify::Packet packet;
    if (text_.empty()) packet = packetOfOptions();
    LoadedRules const loaded = input_.load(console, [&](RuleSet const& rules) {
      checkAcl(rules);
      if (!text_.empty()) {
        FilePacket const read =
            packetFromText(text_, *rules.acls(), "--packet", console.messages());
        packet = read.packet;
        if (!read.acl.empty()) acl_ = read.acl;
      }
      findTargets(rules, console);
    });
    PacketExplanation const explanation =
        explainPacket(*loaded.session, loaded.rules, packet, acl_, targets_);
    if (console.options().json)
      printJson(console.out(), explanation, loaded.rules);
    else
      print(console.out(), explanation, loaded.rules, report_.all);
    return explanation.differences() ? ExitCode::findings : ExitCode::success;
  }

 private:
  /// One packet is given by options or as a text, many by files.
  void checkUsage() const {
    bool const byOptions = !src_.empty() || !dst_.empty() || !tcp_.empty() || fieldIsGiven_;
    if (int{byOptions} + int{!text_.empty()} + int{!files_.empty()} > 1)
      throw std::invalid_argument(
          "packets are given in one way: by --src, --dst and fields, by "
          "--packet, or by --packets");
    if (files_.empty() && text_.empty() && (src_.empty() || dst_.empty()))
      throw std::invalid_argument(
          byOptions ? "a packet needs both --src and --dst"
                    : "no packet is given: by --src and --dst, by --packet, or by --packets");
    if (files_.empty() && report_.each)
      throw std::invalid_argument("--each is about the packets of files");
    std::vector<std::string> all = input_.files();
    all.insert(all.end(), files_.begin(), files_.end());
    if (std::count(all.begin(), all.end(), "-") > 1)
      throw std::invalid_argument("standard input can be read only once");
    if (std::find(all.begin(), all.end(), "") != all.end())
      throw std::invalid_argument("the name of a file is empty");
  }

  void checkAcl(RuleSet const& rules) const {
    if (!acl_.empty() && !rules.acls()->aclHas(acl_))
      throw std::invalid_argument("there is no ACL '" + acl_ + "'");
  }

  void findTargets(RuleSet const& rules, Console& console) {
    if (whyNot_.empty()) return;
    try {
      targets_ = rulesNamed(whyNot_, rules, acl_);
    } catch (NoSuchRule const& e) {
      console.error("unknown-rule", std::string("--why-not: ") + e.what(), e.help());
      throw RejectedInput();
    }
  }

  ExitCode runFiles(Console& console) {
    PacketFiles const files(files_, format_, input_.readOptions().maxInput);
    LoadedRules const loaded = input_.load(console, [&](RuleSet const& rules) {
      checkAcl(rules);
      findTargets(rules, console);
      console.progress().stepIs("reading packets");
      files.check(*rules.acls(), acl_, console.messages());
    });
    console.progress().stepIs("looking packets up");
    FileClassifier classifier(*loaded.session, loaded.rules, files, acl_, targets_);
    report_.json = console.options().json;
    return classifyFiles(classifier, loaded.rules, files, report_, console.out(),
                         console.messages())
               ? ExitCode::success
               : ExitCode::findings;
  }

  Verify::Packet packetOfOptions() const {
    Verify::Packet packet = packet_;
    std::tie(packet.af, packet.src) = addressFromText(src_);
    auto const [af, dst] = addressFromText(dst_);
    if (af != packet.af) throw std::invalid_argument("the addresses are of different families");
    packet.dst = dst;
    setFlags(packet);
    return packet;
  }

  void setFlags(Verify::Packet& packet) const {
    for (std::string_view rest = tcp_; !rest.empty();) {
      size_t const comma = rest.find(',');
      std::string_view const flag = rest.substr(0, comma);
      rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
      if (flag == "syn")
        packet.syn = true;
      else if (flag == "ack")
        packet.ack = true;
      else if (flag == "rst")
        packet.rst = true;
      else
        throw std::invalid_argument("--tcp: '" + std::string(flag) +
                                    "' is none of syn, ack and rst");
    }
  }

  RuleInput input_;
  std::string acl_;
  std::vector<std::string> files_;
  PacketFormat format_ = PacketFormat::automatic;
  FileReport report_;
  std::string whyNot_;
  std::vector<RuleTarget> targets_;
  std::string text_;
  std::string src_;
  std::string dst_;
  std::string tcp_;
  Verify::Packet packet_;
  bool fieldIsGiven_ = false;
};

}  // namespace

CommandInfo explainCommand() {
  return {
      "explain",
      "Say which rules decide on packets, and why",
      "Print the result as JSON",
      "Compiles rules as compile does, and looks packets up in the tables of each ACL of their "
      "family. For one packet it says which rule decides, where that stands, what of the rule "
      "the packet meets, which entry it hits, and which label each table of the chip gives it. "
      "With --why-not it also says why another rule does not decide: what the packet does not "
      "meet, or which earlier rule takes it.\n"
      "\n"
      "For files of packets it says how often each rule was hit, which were never hit, how many "
      "packets were read, and which were left out for what reason; with --each also the verdict "
      "on every packet in every ACL, and with --why-not how many packets the rule does not get for "
      "which reason. Of more than 40 rules those that were hit most are shown, and --all shows "
      "all; so for the ACLs of one packet, of which more than four have no more than a line each. "
      "Each verdict is compared with the rules themselves, "
      "evaluated in order, and each header of a trace with the rule that it was drawn from, "
      "which no later one may decide.",
      {"naxel explain --packet 'tcp 198.51.100.7:1024 > 203.0.113.17:443 syn' "
       "examples/edge.json",
       "naxel explain --packet 'tcp 192.0.2.9:1024 > 203.0.113.17:22 syn' --why-not ssh "
       "examples/edge.json"},
      [] { return std::unique_ptr<Command>(std::make_unique<Explain>()); },
      "classify"};
}

}  // namespace NaxelTool
