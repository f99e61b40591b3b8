#include "command/Classify.h"
#include "command/Command.h"
#include "command/RuleInput.h"

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

class Classification : public Command {
 public:
  void declare(CLI::App& app) override {
    addText(app, "--src", src_, "ADDRESS", "Source address")->required();
    addText(app, "--dst", dst_, "ADDRESS", "Destination address")->required();
    for (Naxel::RangeField const& field : Naxel::rangeFields)
      addNumber(
          app, optionOf(field.name),
          [this, type = field.type](uint64_t v) {
            packet_.valueIs(type, static_cast<uint16_t>(v));
          },
          0, field.bound(), "Field of the packet, 0 by default");
    addText(app, "--tcp", tcp_, "FLAG,...", "TCP flags that are set, of syn, ack and rst");
    addText(app, "--acl", acl_, "NAME", "Look at this ACL only");
    input_.declare(app);
  }

  ExitCode run(Console& console) override {
    Verify::Packet packet = packet_;
    std::tie(packet.af, packet.src) = addressFromText(src_);
    auto const [af, dst] = addressFromText(dst_);
    if (af != packet.af) throw std::invalid_argument("the addresses are of different families");
    packet.dst = dst;
    setFlags(packet);
    LoadedRules const loaded = input_.load(console);
    Session& session = *loaded.session;
    if (!acl_.empty() && !session.acls()->acl(acl_))
      throw std::invalid_argument("there is no ACL '" + acl_ + "'");
    return classify(session, packet, acl_, console.out()) ? ExitCode::success : ExitCode::findings;
  }

 private:
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
  std::string src_;
  std::string dst_;
  std::string tcp_;
  Verify::Packet packet_;
};

}  // namespace

CommandInfo classifyCommand() {
  return {"classify",
          "Look one packet up and say why it gets its verdict",
          "Print the result as JSON",
          "Compiles rules as compile does, looks a packet up in the tables of each ACL of its "
          "family, and says which rule decides, what of the rule the packet fulfils, and which "
          "entry it hits.",
          {"naxel classify --src 198.51.100.7 --dst 203.0.113.17 --proto 6 --dport 443 "
           "examples/edge.json"},
          [] { return std::unique_ptr<Command>(std::make_unique<Classification>()); }};
}

}  // namespace NaxelTool
