#include "load.h"

#include <cstddef>
#include <cstring>
#include <iostream>

namespace trdcomp::tool {

bool looksLikeJson(const Bytes& in) {
  for (unsigned char c : in) {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    return c == '{';
  }
  return false;
}

Json parseJson(const Bytes& in) {
  try {
    return Json::parse(in.begin(), in.end());
  } catch (const Json::parse_error& e) {
    std::string what = e.what();
    // nlohmann's text is "[json.exception.parse_error.101] parse error at line 1, column 5: ..."
    const auto colon = what.find("] ");
    throw Error("malformed JSON: " + (colon == std::string::npos ? what : what.substr(colon + 2)),
                static_cast<std::int64_t>(e.byte) - 1);
  }
}

int directionOf(const Options& o, const Bytes& in) {
  if (o.request) return TRDCOMP_REQUEST;
  if (o.answer) return TRDCOMP_ANSWER;
  std::int32_t length = 0;
  if (in.size() < sizeof length)
    throw Error(
        "truncated message: " + std::to_string(in.size()) + " bytes, too short for a header",
        static_cast<std::int64_t>(in.size()));
  const int d = trdcomp_direction(in.data(), in.size());
  std::memcpy(&length, in.data(), sizeof length);
  if (d < 0)
    throw Error("header length " + std::to_string(length) +
                    " is neither 76 (a request) nor 96 (an answer); use --request or --answer",
                0);
  return d;
}

Loaded loadBytes(const Options& o, const Bytes& in, const Names& names, bool allowPacked) {
  if (in.empty()) throw Error("empty input");
  Loaded l;
  l.bytes = in.size();
  if (looksLikeJson(in)) {
    l.json = true;
    l.message = fromJson(parseJson(in), names);
    l.raw = serialise(l.message);
    return l;
  }
  const int direction = directionOf(o, in);
  const Header header = Header::read(in.data(), in.size(), direction);
  l.packed = header.flags() & TRDCOMP_FLAG_PACKED;
  if (l.packed && !allowPacked)
    throw Error("flags bit 0 is set: the message is packed already; restore it first",
                offsetof(trdcomp_request_header, flags));
  // A raw message restores to the library's raw form too: headers of 76 or 96 bytes, records
  // of the layout's size.
  l.raw = normalise(in, direction, o.flag, o.maxSize, &l.warnings);
  l.message = fromRestored(l.raw, direction, o.flag);
  if (!l.packed) {
    // The record sizes the raw input states, for the notes of inspect and check.
    const trdcomp_frame input = rawFrameOf(in, direction, o.flag);
    for (std::size_t k = 0; k < l.message.sections.size(); ++k)
      if (static_cast<int>(k) < input.section_count)
        l.message.sections[k].senderSize = input.sections[k].sender_size;
  }
  return l;
}

void printWarnings(std::ostream& err, const std::vector<Warning>& warnings,
                   const std::string& where) {
  for (const Warning& w : warnings) {
    err << "warning: " << where << w.message;
    if (w.offset >= 0) err << " (byte offset " << w.offset << ")";
    err << "\n";
  }
}

}  // namespace trdcomp::tool
