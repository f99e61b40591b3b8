#pragma once

/// The values of the output model: handshake records, transform table entries, and the match of one
/// TCAM entry. The contract between library and driver is at the head of PDConfig.h.

#include "lumox/IpGenPrefix.h"
#include "naxel/encoder/LabelTypes.h"
#include "naxel/types/MatchFields.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>

namespace Naxel {

/// What the library asks of the driver.
enum class RequestState : uint8_t { acquire, load, revert };

/// What the driver answers for one table: to `acquire` hitless, hitful or failed; to `load` loaded
/// or failed; to `revert` reverted.
enum class ResponseState : uint8_t { hitless, hitful, loaded, failed, reverted };

/// A policy for all traffic that stands in for the ACLs while they are being exchanged.
enum class GlobalAclControl : uint8_t { doNotApply, denyAll, permitAll };

/// A request. `requestId` is the kick time of the loader; all requests of one kick share it.
class ResourceConfig : public Mox::ValueType<ResourceConfig> {
 public:
  static constexpr std::string_view typeName = "Naxel::ResourceConfig";
  ResourceConfig() = default;
  ResourceConfig(Mox::Seconds id, RequestState state) : requestId_(id), requestState_(state) {}
  explicit ResourceConfig(Mox::TextCursor& c) { Mox::TextForm<ResourceConfig>::read(c, *this); }

  Mox::Seconds requestId() const { return requestId_; }
  RequestState requestState() const { return requestState_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("requestId", &ResourceConfig::requestId_),
                           Mox::field("requestState", &ResourceConfig::requestState_));
  }

 private:
  Mox::Seconds requestId_ = 0;
  RequestState requestState_ = RequestState::acquire;
};

/// The answer of one table. `responseId` is the id of the request that it answers; an answer with
/// another id than the current request's is not an answer to it.
class ResourceStatus : public Mox::ValueType<ResourceStatus> {
 public:
  static constexpr std::string_view typeName = "Naxel::ResourceStatus";
  ResourceStatus() = default;
  ResourceStatus(Mox::Seconds id, ResponseState state) : responseId_(id), responseState_(state) {}
  explicit ResourceStatus(Mox::TextCursor& c) { Mox::TextForm<ResourceStatus>::read(c, *this); }

  Mox::Seconds responseId() const { return responseId_; }
  ResponseState responseState() const { return responseState_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("responseId", &ResourceStatus::responseId_),
                           Mox::field("responseState", &ResourceStatus::responseState_));
  }

 private:
  Mox::Seconds responseId_ = 0;
  ResponseState responseState_ = ResponseState::hitless;
};

/// Common shape of the transform table entries: a key and the encoded label that it yields.
template <class T, class K>
class PDXformEntry : public Mox::ValueType<T> {
 public:
  PDXformEntry() = default;
  PDXformEntry(K key, EncodedLabel value) : key_(std::move(key)), value_(value) {}

  K const& key() const { return key_; }
  EncodedLabel value() const { return value_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("key", &PDXformEntry::key_),
                           Mox::field("value", &PDXformEntry::value_));
  }

 private:
  K key_;
  EncodedLabel value_;
};

/// Longest prefix wins.
class PDPrefixXformEntry : public PDXformEntry<PDPrefixXformEntry, Lumox::IpGenPrefix> {
 public:
  static constexpr std::string_view typeName = "Naxel::PDPrefixXformEntry";
  using PDXformEntry::PDXformEntry;
  PDPrefixXformEntry() = default;
  explicit PDPrefixXformEntry(Mox::TextCursor& c) {
    Mox::TextForm<PDPrefixXformEntry>::read(c, *this);
  }
};

/// The ranges of one table are disjoint.
class PDRangeXformEntry : public PDXformEntry<PDRangeXformEntry, RangeSetElem> {
 public:
  static constexpr std::string_view typeName = "Naxel::PDRangeXformEntry";
  using PDXformEntry::PDXformEntry;
  PDRangeXformEntry() = default;
  explicit PDRangeXformEntry(Mox::TextCursor& c) {
    Mox::TextForm<PDRangeXformEntry>::read(c, *this);
  }
};

/// Looked up by the labels that the two transform tables yielded.
class PDComboEntry : public PDXformEntry<PDComboEntry, EncodedComboLabel> {
 public:
  static constexpr std::string_view typeName = "Naxel::PDComboEntry";
  using PDXformEntry::PDXformEntry;
  PDComboEntry() = default;
  explicit PDComboEntry(Mox::TextCursor& c) { Mox::TextForm<PDComboEntry>::read(c, *this); }
};

/// Names one ACL of the output.
class PDAclKey : public Mox::ValueType<PDAclKey> {
 public:
  static constexpr std::string_view typeName = "Naxel::PDAclKey";
  PDAclKey() = default;
  PDAclKey(Lumox::AddressFamily af, std::string name) : af_(af), aclName_(std::move(name)) {}
  explicit PDAclKey(Mox::TextCursor& c) { Mox::TextForm<PDAclKey>::read(c, *this); }

  Lumox::AddressFamily af() const { return af_; }
  std::string const& aclName() const { return aclName_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("af", &PDAclKey::af_),
                           Mox::field("aclName", &PDAclKey::aclName_));
  }

 private:
  Lumox::AddressFamily af_ = Lumox::ipv4();
  std::string aclName_;
};

/// The match of one TCAM entry. Each field compares the packet's label (or raw value, where the
/// field has no label width) under the field's mask; mask 0 matches anything, and only mask 0
/// matches a packet that has no label. A false TCP flag does not constrain; with both true both
/// must hold. `headFragment` is never filled.
class PDAclFilter : public Mox::ValueType<PDAclFilter> {
 public:
  static constexpr std::string_view typeName = "Naxel::PDAclFilter";
  using E = EncodedLabelWithMask;
  PDAclFilter() = default;
  explicit PDAclFilter(Mox::TextCursor& c) { Mox::TextForm<PDAclFilter>::read(c, *this); }

  E const& source() const { return source_; }
  void sourceIs(E const& v) { source_ = v; }
  E const& destination() const { return destination_; }
  void destinationIs(E const& v) { destination_ = v; }
  E const& prefixCombo() const { return prefixCombo_; }
  void prefixComboIs(E const& v) { prefixCombo_ = v; }
  E const& sport() const { return sport_; }
  void sportIs(E const& v) { sport_ = v; }
  E const& dport() const { return dport_; }
  void dportIs(E const& v) { dport_ = v; }
  E const& portCombo() const { return portCombo_; }
  void portComboIs(E const& v) { portCombo_ = v; }
  E const& icmpType() const { return icmpType_; }
  void icmpTypeIs(E const& v) { icmpType_ = v; }
  E const& proto() const { return proto_; }
  void protoIs(E const& v) { proto_ = v; }
  E const& length() const { return length_; }
  void lengthIs(E const& v) { length_ = v; }
  E const& fragment() const { return fragment_; }
  void fragmentIs(E const& v) { fragment_ = v; }
  E const& dscp() const { return dscp_; }
  void dscpIs(E const& v) { dscp_ = v; }
  E const& headFragment() const { return headFragment_; }
  void headFragmentIs(E const& v) { headFragment_ = v; }
  bool matchTcpInit() const { return matchTcpInit_; }
  void matchTcpInitIs(bool v) { matchTcpInit_ = v; }
  bool matchTcpEstablished() const { return matchTcpEstablished_; }
  void matchTcpEstablishedIs(bool v) { matchTcpEstablished_ = v; }

  /// The fields that carry labels by their type, which must be one of those.
  E const& labelField(TcamFieldType field) const { return this->*labelMember(field); }
  void labelFieldIs(TcamFieldType field, E const& v) { this->*labelMember(field) = v; }

  /// True when all fields have their defaults: the entry that matches every packet.
  bool empty() const { return *this == PDAclFilter(); }

  static constexpr auto fields() {
    return std::make_tuple(
        Mox::field("source", &PDAclFilter::source_),
        Mox::field("destination", &PDAclFilter::destination_),
        Mox::field("prefixCombo", &PDAclFilter::prefixCombo_),
        Mox::field("sport", &PDAclFilter::sport_), Mox::field("dport", &PDAclFilter::dport_),
        Mox::field("portCombo", &PDAclFilter::portCombo_),
        Mox::field("icmpType", &PDAclFilter::icmpType_), Mox::field("proto", &PDAclFilter::proto_),
        Mox::field("length", &PDAclFilter::length_),
        Mox::field("fragment", &PDAclFilter::fragment_), Mox::field("dscp", &PDAclFilter::dscp_),
        Mox::field("headFragment", &PDAclFilter::headFragment_),
        Mox::field("matchTcpInit", &PDAclFilter::matchTcpInit_),
        Mox::field("matchTcpEstablished", &PDAclFilter::matchTcpEstablished_));
  }

 private:
  static std::array<E PDAclFilter::*, labelFieldCount> const labelMembers;
  static constexpr E PDAclFilter::*labelMember(TcamFieldType field);

  E source_;
  E destination_;
  E prefixCombo_;
  E sport_;
  E dport_;
  E portCombo_;
  E icmpType_;
  E proto_;
  E length_;
  E fragment_;
  E dscp_;
  E headFragment_;
  bool matchTcpInit_ = false;
  bool matchTcpEstablished_ = false;
};

inline constexpr std::array<PDAclFilter::E PDAclFilter::*, labelFieldCount>
    PDAclFilter::labelMembers = {
        &PDAclFilter::source_,   &PDAclFilter::destination_, &PDAclFilter::prefixCombo_,
        &PDAclFilter::sport_,    &PDAclFilter::dport_,       &PDAclFilter::portCombo_,
        &PDAclFilter::icmpType_, &PDAclFilter::proto_,       &PDAclFilter::length_,
        &PDAclFilter::fragment_, &PDAclFilter::dscp_};

constexpr PDAclFilter::E PDAclFilter::*PDAclFilter::labelMember(TcamFieldType field) {
  // The fields that carry labels begin at 1; 0 is the field that is none.
  return labelMembers[static_cast<size_t>(field) - 1];
}

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::RequestState> {
  static constexpr std::array<std::string_view, 3> value = {"acquire", "load", "revert"};
};
template <>
struct Mox::EnumNames<Naxel::ResponseState> {
  static constexpr std::array<std::string_view, 5> value = {"hitless", "hitful", "loaded", "failed",
                                                            "reverted"};
};
template <>
struct Mox::EnumNames<Naxel::GlobalAclControl> {
  static constexpr std::array<std::string_view, 3> value = {"doNotApply", "denyAll", "permitAll"};
};
