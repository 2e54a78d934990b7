// Framing of the 2008 codec: a body is a sequence of records, each a u32 length followed by the
// record packed field by field (records/codec2008); an answer with several sections announces
// them in a section table ahead of the body. The rest of the framing is generic
// (framing/message_framing.h).
#include <algorithm>
#include <cstring>

#include "framing/message_framing.h"
#include "records/codec2008.h"

namespace trdcomp::framing {
namespace {

// Decodes a packed record into its slot and keeps the slots zero behind it: a decode cap may run
// past the record, into the next one, which is zeroed again before it is decoded. A layout that
// fills its records is decoded over whatever the slot holds.
struct RecordWriter {
  explicit RecordWriter(RecordArea& a) : area(a) {}
  RecordArea& area;
  std::int64_t dirty = 0;  // bytes written past the previous record
  // The layout of the section being decoded, and what follows from it.
  int section = -1;
  const records::Layout* layout = nullptr;
  records::LayoutDecoder2008 decoder;
  records::Slot slot = records::Slot::Zero;

  void enter(int s, const records::Layout& l) {
    section = s;
    layout = &l;
    decoder = records::LayoutDecoder2008(l);
    // Into fresh zero pages, only what the input gives is written: the pages of a long text's
    // padding are never touched.
    slot = l.fills && !area.fresh() ? records::Slot::Any : records::Slot::Zero;
  }

  void decode(const InView& in, const Place& p, u8* record, char flag) {
    const records::Layout& layout = *this->layout;
    if (slot == records::Slot::Any) {
      area.claim(record, layout.size);  // the decoding writes every byte, whatever was there
    } else {
      area.prepare(record, layout.reach);
      if (dirty > 0) std::memset(record, 0, static_cast<std::size_t>(dirty));
    }
    // The length as the format reads it: signed, so that one of 2^31 or more reads no field.
    const std::int64_t packed = static_cast<std::int32_t>(p.length);
    const std::int64_t reach =
        decoder.decode(in.from(p.from), packed, record, area.end() - record, flag, slot);
    dirty = reach - layout.size;
  }
};

struct Codec2008 {
  static bool sendsRecords(const Params&) { return true; }
  static std::int64_t requestCount(std::int32_t headerCount) { return headerCount; }
  // Every packed record takes its 4-byte length at least.
  static std::int64_t leastPackedBytes(std::int64_t count) { return count * 4; }
  static bool keepsSectionBit(const records::Layout&) { return false; }
  // Counts come from the header and the section table only.
  static constexpr bool kCountsInBody = false;

  static constexpr std::int64_t requestPrefixBound = 0;
  static void beginRequestBody(OutBuffer&, std::int64_t) {}

  // Packs `count` records laid out every `stride` bytes in `records` behind u32 lengths. Each
  // record is viewed over its own extent, so a text without terminator is measured to the end of
  // its own record, never through the rest of the body.
  static void packRecords(const records::Layout& layout, const InView& records, std::int64_t count,
                          std::int64_t stride, OutBuffer& out, const Params& params) {
    if (!out.expect(sizeTimes(count, 4))) return;  // a length field per record at least
    const std::int64_t extent = records::recordExtent(layout, stride);
    const std::int64_t most = 4 + records::maxEncoded2008(layout, extent);
    for (std::int64_t i = 0; i < count && !out.failed(); ++i) {
      u8* slot = out.reserve(most);
      if (!slot) return;
      const std::uint32_t length =
          records::encode2008(layout, records.window(i * stride, extent), slot + 4, params.flag);
      storeU32(slot, length);
      out.commit(slot, 4 + std::int64_t(length));
    }
  }

  static std::int64_t recordsBound(const records::Layout& layout, std::int64_t count,
                                   std::int64_t stride) {
    return sizeTimes(count,
                     4 + records::maxEncoded2008(layout, records::recordExtent(layout, stride)));
  }

  static void beginAnswerBody(const records::AnswerLayout&, const tagANS_Proc&, OutBuffer&) {}
  static std::int64_t answerPrefixBound(const records::AnswerLayout&) { return 0; }
  static u8 answerFlags(const records::AnswerLayout&) { return 1; }

  static Status packSection(const records::Layout& layout, const InView& records,
                            std::int64_t count, std::int64_t stride, OutBuffer& out,
                            const Params& params) {
    packRecords(layout, records, count, stride, out, params);
    return TRDCOMP_OK;
  }
  static std::int64_t sectionBound(const records::Layout& layout, std::int64_t count,
                                   std::int64_t stride) {
    return recordsBound(layout, count, stride);
  }

  // The records the frame walker finds: packed ones decoded into their slots, plain ones
  // copied. Reading stops where the message ends; the records after stay zero, unvisited.
  static Status restoreRecords(const Frame& f, const InView& in, u8* first, RecordArea& area,
                               const Params& params, const RestoreOptions& options) {
    struct Restore : RecordsOnly {
      const Frame& f;
      const InView& in;
      u8* first;
      RecordWriter writer;
      char flag;
      const RestoreOptions& options;
      Status record(const Place& p) {
        options.step();
        if (p.section != writer.section) writer.enter(p.section, *f.layouts[p.section]);
        const records::Layout& l = *writer.layout;
        u8* slot = first + p.target;
        if (p.unit == Unit::Raw)
          copyRawRecord(in, p, slot, l.size, writer.area);
        else if (!l.opaque)
          writer.decode(in, p, slot, flag);
        return TRDCOMP_OK;
      }
    } v{{}, f, in, first, RecordWriter(area), params.flag, options};
    return f.answer ? walkSections(f, in, v) : walkRequest(f, in, v);
  }
};

}  // namespace

const CodecOps kCodec2008 = opsOf<Codec2008>(0, true);

}  // namespace trdcomp::framing
