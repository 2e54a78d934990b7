// Drives the record codecs' two paths on the same bytes: the 2008 codec reads records that lie
// wholly inside their input without checks, the 2011 codec restores catalogue layouts through its
// prepared field table; the reference paths check every byte. Byte 0 and 1 pick a layout, byte 2
// the 2008 codec flag and the 2011 part, bytes 3-4 how far behind the record the input goes on
// (so that both paths are taken) and whether a 2011 block has a previous record; the rest is a
// packed record for the decoders and a caller's record for the encoders. Any difference in bytes
// written or lengths aborts.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "records/answer_layouts.h"
#include "records/codec2008.h"
#include "records/codec2011.h"
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

  // 2011: a block of the body (its length from bytes 3-4) restored over zero records (and over a
  // dirty one where the decoder writes the whole record), chained to a previous record made of
  // the body's first bytes when byte 4 says so; then the body packed as a record against that
  // previous one.
  using trdcomp::records::Part;
  using trdcomp::records::Previous;
  const Part part = l.dictionary ? static_cast<Part>((data[2] >> 2) % 3) : Part::Whole;
  std::vector<std::uint8_t> prior(l.size, 0);
  std::copy_n(in.begin(), std::min<std::size_t>(in.size(), l.size), prior.begin());
  const InView priorView(prior.data(), static_cast<std::int64_t>(prior.size()));
  const Previous previous{data[4] & 0x40 ? &priorView : nullptr,
                          static_cast<std::uint16_t>(data[3] % 4)};
  const std::int64_t length = (data[3] | data[4] << 8) % (static_cast<std::int64_t>(body) + 8);
  std::vector<std::uint8_t> da(l.size + 16, 0), db(l.size + 16, 0);
  const auto ia = trdcomp::records::decode2011(l, part, view, length, da.data(), l.size, previous);
  const auto ib =
      trdcomp::records::decode2011Checked(l, part, view, length, db.data(), l.size, previous);
  if (ia != ib || da != db) std::abort();
  if (previous.record && part == Part::Whole && trdcomp::records::overwrites2011(l, l.size)) {
    // Restored over whatever the slot held, as the framing does after a section's first record.
    std::vector<std::uint8_t> dirty(l.size + 16, 0xA5);
    std::fill(dirty.begin() + l.size, dirty.end(), 0);
    trdcomp::records::decode2011(l, part, view, length, dirty.data(), l.size, previous,
                                 trdcomp::records::Slot::Any);
    if (dirty != db) std::abort();
  }

  const std::size_t block = static_cast<std::size_t>(trdcomp::records::maxBlock2011(l, part));
  std::vector<std::uint8_t> pa(block + 1, 0xEE), pb(block + 1, 0xEE);
  const auto index = static_cast<std::uint16_t>(data[2] >> 4);
  const auto sa = trdcomp::records::encode2011(l, part, view, index, previous, pa.data());
  const auto sb = trdcomp::records::encode2011Checked(l, part, view, index, previous, pb.data());
  if (sa != sb || sa > block || pa != pb) std::abort();

  // 2011 packing of a caller's body, records every `stride` bytes (the layout's size, or a
  // sender's larger or smaller one), where a text may fill its array and its comparison run on
  // into the following bytes; byte 2 may take every terminator out. The fast and the reference
  // encoders, fed record windows and the body as the framing feeds them, and the reference fed
  // the rest of the body as the record (the literal comparison of terminated strings, nothing
  // remembered), write the same blocks.
  if (part == Part::Whole) {
    std::vector<std::uint8_t> callers(in);
    if (data[2] & 0x40)
      std::replace(callers.begin(), callers.end(), std::uint8_t(0), std::uint8_t('A'));
    const InView bodyView(callers.data(), static_cast<std::int64_t>(callers.size()));
    const std::int64_t stride =
        std::max<std::int64_t>(1, std::int64_t(l.size) + static_cast<std::int8_t>(data[3]) / 4);
    const std::int64_t count = std::min<std::int64_t>(6, bodyView.size() / stride);
    const std::int64_t extent = trdcomp::records::recordExtent(l, stride);
    trdcomp::records::TextTail tailA(bodyView, stride), tailB(bodyView, stride);
    InView previousWindow, previousRest;
    for (std::int64_t i = 0; i < count; ++i) {
      const InView window = bodyView.window(i * stride, extent);
      const InView rest = bodyView.from(i * stride);
      std::fill(pa.begin(), pa.end(), 0xEE);
      std::fill(pb.begin(), pb.end(), 0xEE);
      std::vector<std::uint8_t> pc(block + 1, 0xEE);
      const auto ea = trdcomp::records::encode2011(
          l, part, window, 0, Previous{i ? &previousWindow : nullptr, 0, &tailA}, pa.data());
      const auto eb = trdcomp::records::encode2011Checked(
          l, part, window, 0, Previous{i ? &previousWindow : nullptr, 0, &tailB}, pb.data());
      const auto ec = trdcomp::records::encode2011Checked(
          l, part, rest, 0, Previous{i ? &previousRest : nullptr}, pc.data());
      if (ea != eb || ea != ec || pa != pb || pa != pc) std::abort();
      previousWindow = window;
      previousRest = rest;
    }
  }
  return 0;
}
