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

constexpr int kSectionTableSlack = 1024;  // behind a restored multi-section answer

// Decodes a packed record into its slot and keeps the slots zero behind it: a decode cap may run
// past the record, into the next one, which is zeroed again before it is decoded. A layout that
// fills its records is decoded over whatever the slot holds.
struct RecordWriter {
  RecordArea& area;
  std::int64_t dirty = 0;  // bytes written past the previous record

  void decode(const records::Layout& layout, const InView& in, std::int64_t pos, u8* record,
              char flag) {
    // Into fresh zero pages, only what the input gives is written: the pages of a long text's
    // padding are never touched.
    const records::Slot slot =
        layout.fills && !area.fresh() ? records::Slot::Any : records::Slot::Zero;
    if (slot == records::Slot::Any) {
      area.claim(record, layout.size);  // the decoding writes every byte, whatever was there
    } else {
      area.prepare(record, layout.reach);
      if (dirty > 0) std::memset(record, 0, static_cast<std::size_t>(dirty));
    }
    const std::int64_t packed = static_cast<std::int32_t>(in.u32(pos));
    const std::int64_t reach = records::decode2008(layout, in.from(pos + 4), packed, record,
                                                   area.end() - record, flag, slot);
    dirty = reach - layout.size;
  }
};

struct Codec2008 {
  static bool sendsRecords(const Params&) { return true; }
  static std::int64_t requestCount(std::int32_t headerCount) { return headerCount; }
  // Every packed record takes its 4-byte length at least.
  static std::int64_t leastPackedBytes(std::int64_t count) { return count * 4; }
  static bool keepsSectionBit(const records::Layout&) { return false; }

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

  // Packed records from `pos` on, each behind its u32 length; reading stops where the message
  // ends (the records after stay zero, unvisited).
  static void restorePacked(const records::Layout& layout, const InView& in, std::int64_t& pos,
                            u8* first, std::int64_t count, RecordWriter& writer, char flag,
                            const RestoreOptions& options) {
    for (std::int64_t i = 0; i < count && in.has(pos); ++i) {
      options.step();
      if (!layout.opaque) writer.decode(layout, in, pos, first + i * layout.size, flag);
      pos += 4 + static_cast<std::int64_t>(in.u32(pos));
    }
  }

  static Status restoreRequestRecords(const records::Layout& layout, const InView& in,
                                      std::int64_t pos, u8* first, std::int64_t count,
                                      RecordArea& area, const Params& params,
                                      const RestoreOptions& options) {
    RecordWriter writer{area};
    restorePacked(layout, in, pos, first, count, writer, params.flag, options);
    return TRDCOMP_OK;
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

  // Counts and sender sizes: from the section table when there is one, else from the header.
  // Optional sections are laid out only when the message's table sends more than one section.
  static SectionPlan planAnswer(const records::AnswerLayout& layout, const InView& in) {
    SectionPlan plan;
    plan.pos = in.u32(0);
    std::int64_t pairs = 0;
    if (in.at(8) & 2) {
      const std::int32_t table = in.i32(plan.pos);
      pairs = std::min<std::int64_t>((std::int64_t(table) - 4) / 8, 5);
      for (std::int64_t k = 0; k < pairs; ++k) {
        plan.counts[k] = in.i32(plan.pos + 4 + 8 * k);
        plan.senderSizes[k] = in.i32(plan.pos + 8 + 8 * k);
      }
      plan.pos += table;
    } else {
      plan.counts[0] = in.i32(88);
      plan.senderSizes[0] = in.i32(92);
    }
    plan.sections = layout.optionalSections() && pairs < 2 ? 1 : layout.sectionCount;
    plan.multi = plan.sections > 1;
    plan.slack = plan.multi ? kSectionTableSlack : kAnswerSlack;
    return plan;
  }

  // Records are read only while the position lies inside the message; the rest stay zero and
  // are never visited. Raw records of no size (or a negative one) carry nothing.
  // How many records the input reaches: the framing's walk without the decoding. A length that
  // jumps past the end, or raw records of no size, end it as they end the restore.
  static std::int64_t recordsPresent(const records::AnswerLayout&, const SectionPlan& plan,
                                     const InView& in) {
    std::int64_t pos = plan.pos, present = 0;
    const bool packed = in.at(8) & 1;
    for (int s = 0; s < plan.sections; ++s) {
      const std::int32_t count = plan.counts[s], senderSize = plan.senderSizes[s];
      if (packed) {
        for (std::int32_t i = 0; i < count && in.has(pos); ++i, ++present)
          pos += 4 + static_cast<std::int64_t>(in.u32(pos));
      } else if (senderSize < 0) {
        break;
      } else if (senderSize > 0 && in.has(pos) && count > 0) {
        const std::int64_t reached =
            std::min<std::int64_t>(count, (in.size() - pos + senderSize - 1) / senderSize);
        present += reached;
        pos += reached * senderSize;
      }
    }
    return present;
  }

  static Status restoreSections(const records::AnswerLayout& layout, const SectionPlan& plan,
                                const InView& in, u8* record, RecordArea& area,
                                const Params& params, const RestoreOptions& options) {
    RecordWriter writer{area};
    std::int64_t pos = plan.pos;
    const bool packed = in.at(8) & 1;
    for (int s = 0; s < plan.sections; ++s) {
      const records::Layout& l = *layout.sections[s];
      const std::int32_t count = plan.counts[s], senderSize = plan.senderSizes[s];
      if (packed) {
        restorePacked(l, in, pos, record, count, writer, params.flag, options);
      } else if (senderSize < 0) {
        pos = in.size();  // read backwards: nothing more
      } else if (senderSize > 0) {
        const std::int64_t rawCopy = std::min<std::int64_t>(senderSize, l.size);
        for (std::int32_t i = 0; i < count && in.has(pos); ++i) {
          options.step();
          area.prepare(record + i * std::int64_t(l.size), l.size);
          in.copyAvailable(record + i * std::int64_t(l.size), pos, rawCopy);
          pos += senderSize;
        }
      }
      record += std::int64_t(count) * l.size;
    }
    return TRDCOMP_OK;
  }
};

}  // namespace

const CodecOps kCodec2008 = opsOf<Codec2008>(0, true);

}  // namespace trdcomp::framing
