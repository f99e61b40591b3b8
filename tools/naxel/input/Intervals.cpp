#include "input/Intervals.h"

#include "mox/AlignedBlocks.h"

#include <algorithm>

namespace NaxelTool {

namespace {

Wide largest(unsigned bits) { return bits == 128 ? ~Wide{0} : (Wide{1} << bits) - 1; }

Interval intervalOf(Lumox::IpGenPrefix const& p) {
  unsigned const bits = bitsOf(p.af());
  Wide const address = ((Wide{p.hi()} << 64) | p.lo()) >> (128 - bits);
  // The longest prefix has no host bits, and a shift by all of 128 bits is undefined.
  Wide const host = p.length() == bits ? Wide{0} : largest(bits) >> p.length();
  return {address & ~host, address | host};
}

IntervalSet intervalsOf(Naxel::IpPrefixList::PrefixColl const& prefixes) {
  std::vector<Interval> all;
  all.reserve(prefixes.size());
  for (Lumox::IpGenPrefix const& p : prefixes) all.push_back(intervalOf(p));
  return united(std::move(all));
}

}  // namespace

IntervalSet united(std::vector<Interval> all) {
  std::sort(all.begin(), all.end(),
            [](Interval const& a, Interval const& b) { return a.first < b.first; });
  IntervalSet out;
  for (Interval const& i : all) {
    if (!out.empty() && (i.first <= out.back().last || i.first - 1 == out.back().last))
      out.back().last = std::max(out.back().last, i.last);
    else
      out.push_back(i);
  }
  return out;
}

IntervalSet without(IntervalSet const& from, IntervalSet const& what) {
  IntervalSet out;
  auto hole = what.begin();
  for (Interval rest : from) {
    while (hole != what.end() && hole->last < rest.first) ++hole;
    bool gone = false;
    for (auto h = hole; h != what.end() && h->first <= rest.last; ++h) {
      if (h->first > rest.first) out.push_back({rest.first, h->first - 1});
      if (h->last >= rest.last) {
        gone = true;
        break;
      }
      rest.first = h->last + 1;
      hole = h;
    }
    if (!gone) out.push_back(rest);
  }
  return out;
}

bool isEverything(IntervalSet const& set, unsigned bits) {
  return set.size() == 1 && set[0] == Interval{0, largest(bits)};
}

uint64_t coverSize(IntervalSet const& set, unsigned bits) {
  uint64_t count = 0;
  for (auto const& [first, last] : set)
    Mox::forEachAlignedBlock(first, last, bits, [&](Wide, unsigned) { ++count; });
  return count;
}

std::vector<Lumox::IpGenPrefix> prefixesOf(IntervalSet const& set, Lumox::AddressFamily af) {
  unsigned const bits = bitsOf(af);
  std::vector<Lumox::IpGenPrefix> out;
  for (auto const& [first, last] : set)
    Mox::forEachAlignedBlock(first, last, bits, [&](Wide from, unsigned free) {
      auto const length = static_cast<uint8_t>(bits - free);
      out.push_back(af == Lumox::ipv4()
                        ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(from), length)
                        : Lumox::IpGenPrefix::v6(static_cast<uint64_t>(from >> 64),
                                                 static_cast<uint64_t>(from), length));
    });
  return out;
}

IntervalSet addressesOf(Naxel::IpPrefixList const& list) {
  return without(intervalsOf(list.addr()), intervalsOf(list.exceptAddr()));
}

unsigned bitsOf(Lumox::AddressFamily af) { return af == Lumox::ipv4() ? 32 : 128; }

}  // namespace NaxelTool
