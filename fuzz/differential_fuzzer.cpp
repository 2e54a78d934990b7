// Drives the 2008 record codec's two paths on the same bytes: records that lie wholly inside
// their input are read without checks, the reference reads check every byte. Byte 0 and 1 pick a
// layout, byte 2 the codec flag, bytes 3-4 how far behind the record the input goes on (so that
// both paths are taken); the rest is a packed record for the decoders and a caller's record for
// the encoders. Any difference in bytes written or lengths aborts.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "records/answer_layouts.h"
#include "records/codec2008.h"
#include "records/request_layouts.h"

using trdcomp::InView;
using trdcomp::records::Layout;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 5) return 0;
  const auto& requests = trdcomp::records::kRequestLayouts;
  const auto& answers = trdcomp::records::kAnswerLayouts;
  const std::size_t pick = (data[0] | data[1] << 8) % (requests.size() + answers.size());
  const Layout& l = pick < requests.size() ? requests[pick] : answers[pick - requests.size()];
  if (l.opaque) return 0;
  const char flag = static_cast<char>(data[2] % 3);
  const std::size_t body = size - 5;
  const std::int64_t available = static_cast<std::int64_t>(body) - (data[3] | data[4] << 8) % 256 -
                                 (data[4] & 0x80 ? l.readSpan : 0);
  // An exact-size copy, so that a read past the input is caught.
  std::vector<std::uint8_t> in(data + 5, data + size);
  const InView view(in.data(), static_cast<std::int64_t>(in.size()));

  const std::size_t room = l.reach + 16;
  std::vector<std::uint8_t> a(room, 0), b(room, 0);
  // A layout that fills its records may be decoded over whatever the record held.
  const auto slot =
      l.fills && (data[2] & 0x80) ? trdcomp::records::Slot::Any : trdcomp::records::Slot::Zero;
  if (slot == trdcomp::records::Slot::Any)
    std::fill(a.begin(), a.begin() + l.size, std::uint8_t(0xA5));
  const std::int64_t ra = trdcomp::records::decode2008(l, view, available, a.data(),
                                                       static_cast<std::int64_t>(room), flag, slot);
  const std::int64_t rb = trdcomp::records::decode2008Checked(
      l, view, available, b.data(), static_cast<std::int64_t>(room), flag);
  if (ra != rb || a != b) std::abort();

  const std::size_t most =
      static_cast<std::size_t>(trdcomp::records::maxEncoded2008(l, view.size()));
  // The fast encoder may write scratch bytes past its result, never past `most`.
  std::vector<std::uint8_t> ea(most + 16, 0xEE), eb(most + 16, 0xEE);
  const auto na = trdcomp::records::encode2008(l, view, ea.data(), flag);
  const auto nb = trdcomp::records::encode2008Checked(l, view, eb.data(), flag);
  if (na != nb || na > most || !std::equal(ea.begin(), ea.begin() + na, eb.begin()) ||
      !std::equal(ea.begin() + static_cast<std::ptrdiff_t>(most), ea.end(),
                  eb.begin() + static_cast<std::ptrdiff_t>(most)))
    std::abort();
  return 0;
}
