#include "capi/walk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "primitives/header.h"

namespace trdcomp::capi {
namespace {

using framing::FrameItem;
using framing::FrameNote;
using framing::Place;

long long ll(std::int64_t v) {
  return static_cast<long long>(v);
}

// Counts what the walker finds, and where the bytes it reads end.
struct Survey {
  static constexpr bool kItems = true;
  static constexpr bool kNotes = true;
  Walked& w;
  std::int64_t size;
  std::int64_t lastCount = -1;  // the last 16-bit count read: where a mismatch lies

  void reach(std::int64_t to) { w.end = std::max(w.end, std::min(to, size)); }
  void item(const FrameItem& i) {
    reach(i.at + i.length);
    if (i.part == framing::Part::Count16) lastCount = i.at;
  }
  void note(const FrameNote& n) { w.notes.push_back(n); }
  Status dictionary(int, std::int64_t, std::int64_t) { return TRDCOMP_OK; }
  Status record(const Place& p) {
    if (w.first[p.section] < 0) w.first[p.section] = p.prefix;
    if (p.unit != framing::Unit::Entry) ++w.present[p.section];
    reach(p.from + std::max<std::int64_t>(p.length, 0));
    return TRDCOMP_OK;
  }
};

const char* sectionWord(int section, char (&buffer)[32]) {
  if (section < 0) return "";
  std::snprintf(buffer, sizeof buffer, "section %d: ", section);
  return buffer;
}

}  // namespace

Walked walk(const InView& in, int direction) {
  Walked w;
  const header::View h(in);
  w.entry = frame::find(h.function());
  const int codec = h.flags().codec();
  if (w.entry) w.records = recordsOf(*w.entry, direction, codec);
  const bool routine =
      w.records.form == TRDCOMP_FORM_RECORDS || w.records.form == TRDCOMP_FORM_HEADER_ONLY;
  w.end = std::min<std::int64_t>(
      in.size(), direction == TRDCOMP_REQUEST ? header::Request::kBytes : header::Answer::kBytes);
  if (!routine) {
    const std::int64_t bytes =
        direction == TRDCOMP_REQUEST ? header::Request::kBytes : header::Answer::kBytes;
    if (h.length() != bytes)
      w.notes.push_back(
          FrameNote{framing::Note::HeaderLength, -1, header::Request::kLength, h.length(), bytes});
    if (w.records.form == TRDCOMP_FORM_PASS_THROUGH && direction == TRDCOMP_ANSWER) {
      const framing::RawAnswer r = framing::rawAnswer(in);
      w.end = std::clamp<std::int64_t>(r.headerLength + r.table + r.body, w.end, in.size());
    } else if (w.records.form == TRDCOMP_FORM_PASS_THROUGH) {
      w.end = in.size();
    }
    return w;
  }
  w.walked = true;
  Survey survey{w, in.size()};
  if (direction == TRDCOMP_REQUEST) {
    w.frame = framing::requestFrame(*w.records.sections[0], in);
    w.refusal = framing::walkRequest(w.frame, in, survey);
  } else {
    w.frame = framing::answerFrame(*w.entry->answerRestore[codec], in);
    w.refusal = framing::walkSections(w.frame, in, survey);
  }
  // A count past the end of the input reads as zero: the fault lies at the end.
  if (w.refusal == TRDCOMP_ERROR_COUNT_MISMATCH)
    w.refusalAt = std::min<std::int64_t>(survey.lastCount, in.size());
  return w;
}

void describeFrame(const Walked& w, const InView& in, int direction, trdcomp_frame& out) {
  out = trdcomp_frame{};
  const header::View h(in);
  out.direction = direction;
  out.codec = h.flags().codec() ? TRDCOMP_CODEC_2011 : TRDCOMP_CODEC_2008;
  out.form = w.records.form;
  out.function = h.function();
  out.flags = h.flags().bits;
  out.header_length = h.length();
  out.table_offset = -1;
  out.end = w.end;
  const bool request = direction == TRDCOMP_REQUEST;
  const std::int64_t headerBytes = request ? header::Request::kBytes : header::Answer::kBytes;
  out.restored_length =
      w.records.form == TRDCOMP_FORM_PASS_THROUGH || w.records.form == TRDCOMP_FORM_NO_BODY
          ? in.size()
          : headerBytes;
  if (w.records.form == TRDCOMP_FORM_PASS_THROUGH && !request) {
    const framing::RawAnswer r = framing::rawAnswer(in);
    out.restored_length = headerBytes + r.table + r.body;
    if (r.table > 0) {
      out.table_offset = r.headerLength;
      out.table_length = r.table;
    }
  }
  if (!w.walked) return;
  const framing::Frame& f = w.frame;
  out.packed = f.packed;
  out.records_offset = f.records;
  if (f.table >= 0) {
    out.table_offset = f.table;
    out.table_length = f.tableBytes;
  }
  out.section_count = request ? 1 : f.sections;
  std::int64_t restored = headerBytes + f.tableBytesRestored();
  for (int s = 0; s < out.section_count && s < TRDCOMP_MAX_SECTIONS; ++s) {
    trdcomp_section_frame& o = out.sections[s];
    const records::Layout& l = *f.layouts[s];
    o.count = f.counts[s];
    o.sender_size = f.packed ? 0 : f.senderSizes[s];
    o.record_size = l.size;
    o.dictionary = l.dictionary && f.codec == 1;
    o.count_offset = f.countAt[s];
    o.first_offset = w.first[s];
    o.present = w.present[s];
    o.restored_offset = restored;
    restored += std::int64_t(std::max(0, f.counts[s])) * l.size;
  }
  out.restored_length = restored;
}

void reportNotes(const Walked& w, trdcomp_warning* warnings, std::size_t capacity,
                 std::size_t* count) {
  if (count) *count = w.notes.size();
  for (std::size_t k = 0; k < w.notes.size() && k < capacity && warnings; ++k) {
    const FrameNote& n = w.notes[k];
    trdcomp_warning& out = warnings[k];
    out = trdcomp_warning{};
    out.offset = n.at;
    char where[32] = "";
    const char* s = sectionWord(n.section, where);
    switch (n.note) {
      case framing::Note::HeaderLength:
        out.code = TRDCOMP_WARN_HEADER_LENGTH;
        std::snprintf(out.message, sizeof out.message,
                      "header length %lld, not %lld: read as the format reads it", ll(n.value),
                      ll(n.other));
        break;
      case framing::Note::RecordsMissing:
        out.code = TRDCOMP_WARN_RECORDS_MISSING;
        std::snprintf(out.message, sizeof out.message,
                      "%sthe message ends after %lld of its %lld records: the rest restore as "
                      "zeros",
                      s, ll(n.other), ll(n.value));
        break;
      case framing::Note::RecordCut:
        out.code = TRDCOMP_WARN_RECORD_CUT;
        std::snprintf(out.message, sizeof out.message,
                      "%sa record of %lld bytes is cut off: %lld remain in the message", s,
                      ll(n.value), ll(n.other));
        break;
      case framing::Note::CountDisagrees:
        out.code = TRDCOMP_WARN_COUNT_DISAGREES;
        std::snprintf(out.message, sizeof out.message,
                      "%sthe body counts %lld records, the header %lld: the body's count holds", s,
                      ll(n.value), ll(n.other));
        break;
    }
  }
}

int directionOf(const InView& in, int direction, trdcomp_error* err, int& out) {
  if (direction == TRDCOMP_REQUEST || direction == TRDCOMP_ANSWER) {
    out = direction;
    return TRDCOMP_OK;
  }
  if (direction != TRDCOMP_DETECT)
    return fail(err, TRDCOMP_ERROR_ARGUMENT, -1, "unknown direction %d", direction);
  if (in.size() < 4)
    return fail(err, TRDCOMP_ERROR_TRUNCATED, in.size(),
                "the message is %lld bytes, too short for a header", ll(in.size()));
  out = trdcomp_direction(in.data(), static_cast<std::size_t>(in.size()));
  if (out < 0)
    return fail(err, TRDCOMP_ERROR_HEADER, 0,
                "header length %d is neither 76 (a request) nor 96 (an answer): give the "
                "direction",
                header::View(in).length());
  return TRDCOMP_OK;
}

}  // namespace trdcomp::capi
