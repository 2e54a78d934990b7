#include "commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

#include "load.h"
#include "message.h"

namespace trdcomp::tool {
namespace {

std::string str(std::int64_t v) {
  return std::to_string(v);
}

// ---- inspect ------------------------------------------------------------------------------

void row(std::ostream& out, std::int64_t offset, const std::string& kind, const std::string& name,
         const std::string& value, int nameWidth) {
  out << std::setw(10) << offset << "  " << std::left << std::setw(13) << kind;
  if (nameWidth) out << std::setw(nameWidth + 2) << name;
  out << std::right << value << "\n";
}

void printHeader(std::ostream& out, const Header& h) {
  out << "header\n";
  constexpr int w = 15;
  // Where each field lies, for people reading a dump beside this.
  const bool request = h.isRequest();
  auto at = [&](std::size_t inRequest, std::size_t inAnswer) {
    return static_cast<std::int64_t>(request ? inRequest : inAnswer);
  };
#define TRDCOMP_TOOL_AT(field) \
  at(offsetof(trdcomp_request_header, field), offsetof(trdcomp_answer_header, field))
  row(out, TRDCOMP_TOOL_AT(header_length), "int32", "header length", str(h.length()), w);
  row(out, TRDCOMP_TOOL_AT(function), "uint32", "function", str(h.function()), w);
  row(out, TRDCOMP_TOOL_AT(flags), "flags", "flags", flagsText(h.flags()), w);
  const std::string caller = toHex(h.caller(), h.callerSize(), true);
  row(out, TRDCOMP_TOOL_AT(caller), "bytes[" + str(h.callerSize()) + "]", "caller data",
      caller.empty() ? "(zeros)" : caller, w);
  if (!request) {
    const auto* shortText = reinterpret_cast<const unsigned char*>(h.answer.short_text);
    const auto* text = reinterpret_cast<const unsigned char*>(h.answer.text);
    row(out, offsetof(trdcomp_answer_header, short_text),
        "text[" + str(sizeof h.answer.short_text) + "]", "short text",
        escapeText(shortText, sizeof h.answer.short_text), w);
    row(out, offsetof(trdcomp_answer_header, text), "text[" + str(sizeof h.answer.text) + "]",
        "text", escapeText(text, sizeof h.answer.text), w);
  }
  row(out, TRDCOMP_TOOL_AT(count), "int32", "record count", str(h.count()), w);
  row(out, TRDCOMP_TOOL_AT(size), "int32", "record size", str(h.recordSize()), w);
#undef TRDCOMP_TOOL_AT
}

void printRecord(std::ostream& out, const Message& m, std::size_t section, const unsigned char* rec,
                 const Names& names) {
  const SectionShape& s = m.shape.sections[section];
  const int sec = static_cast<int>(section);
  auto nameOf = [&](const std::string& key) {
    return names.name(m.shape.number, m.shape.direction, sec, key);
  };
  if (s.info.opaque) {
    trdcomp_field_info whole{};
    whole.kind = TRDCOMP_KIND_BLOCK;
    whole.width = s.info.record_size;
    row(out, 0, "bytes[" + str(s.info.record_size) + "]", "", fieldText(whole, rec), 0);
    return;
  }
  std::size_t nameWidth = 0;
  for (const auto& f : s.fields) nameWidth = std::max(nameWidth, nameOf(str(f.offset)).size());
  for (int i : topLevel(s)) {
    const trdcomp_field_info& f = s.fields[i];
    const std::string name = nameOf(str(f.offset));
    if (f.kind != TRDCOMP_KIND_GROUP) {
      row(out, f.offset, kindName(f), name, fieldText(f, rec + f.offset),
          static_cast<int>(nameWidth));
      continue;
    }
    row(out, f.offset, kindName(f), name,
        "counted by the int32 at " + str(f.count_offset) + ": " +
            str(loadI32(rec + f.count_offset)),
        static_cast<int>(nameWidth));
    for (std::uint32_t e = 0; e < f.repeat; ++e) {
      const unsigned char* entry = rec + f.offset + e * f.stride;
      if (std::all_of(entry, entry + f.stride, [](unsigned char b) { return b == 0; })) continue;
      for (std::uint32_t k = 1; k <= f.members; ++k) {
        const trdcomp_field_info& member = s.fields[i + k];
        std::string label = "[";
        label += str(e);
        label += ']';
        const std::string memberName = names.name(m.shape.number, m.shape.direction, sec,
                                                  str(f.offset) + "+" + str(member.offset));
        if (!memberName.empty()) label += " " + memberName;
        std::string kind(2, ' ');
        kind += kindName(member);
        row(out, f.offset + e * f.stride + member.offset, kind, "",
            label + " " + fieldText(member, entry + member.offset), 0);
      }
    }
  }
}

void printInspect(std::ostream& out, const Loaded& l, const Bytes& input, const Names& names) {
  const Message& m = l.message;
  out << directionName(m.shape.direction) << " " << m.shape.number << ", "
      << codecName(m.shape.codec) << " codec: ";
  if (l.json)
    out << "from JSON, " << l.raw.size() << " bytes raw\n";
  else if (l.packed)
    out << "packed, " << l.bytes << " bytes; restored, " << l.raw.size() << " bytes\n";
  else
    out << "raw, " << l.bytes << " bytes\n";
  printHeader(out, l.json ? m.header : Header::read(input.data(), input.size(), m.shape.direction));
  if (m.shape.form == TRDCOMP_FORM_NO_BODY) {
    out << "no body: " << m.body.size() << " bytes after the header are not part of the message\n";
    return;
  }
  if (m.shape.form == TRDCOMP_FORM_PASS_THROUGH) {
    out << "no layout: the body passes through as it is, " << m.body.size() << " bytes\n";
    if (!m.body.empty()) {
      trdcomp_field_info whole{};
      whole.kind = TRDCOMP_KIND_BLOCK;
      whole.width = static_cast<std::uint32_t>(m.body.size());
      row(out, static_cast<std::int64_t>(Header::size(m.shape.direction)), "bytes", "",
          fieldText(whole, m.body.data()), 0);
    }
    return;
  }
  if (m.shape.form == TRDCOMP_FORM_HEADER_ONLY)
    out << "header only: request " << m.shape.number << " packs without its records\n";
  const bool answer = m.shape.direction == TRDCOMP_ANSWER;
  if (answer) {
    out << (m.table() ? "section table (in the raw message after the header)\n"
                      : "sections (from the header)\n");
    for (std::size_t k = 0; k < m.sections.size(); ++k)
      out << "  section " << k << ": " << m.sections[k].count << " records of " << m.recordSize(k)
          << " bytes\n";
  }
  for (std::size_t k = 0; k < m.sections.size(); ++k) {
    const Section& s = m.sections[k];
    const auto& info = m.shape.sections[k].info;
    out << (answer ? "section " + str(k) + ": " : std::string("records: ")) << s.count << " of "
        << info.record_size << " bytes, layout of " << info.routine
        << (info.dictionary ? ", dictionary" : "") << "\n";
    if (s.senderSize != static_cast<std::int32_t>(info.record_size))
      out << "  note: the message states records of " << s.senderSize << " bytes; each keeps "
          << std::min<std::int64_t>(s.senderSize, info.record_size) << "\n";
    // Offsets in the raw message, where record i of the section starts.
    const std::int64_t at = s.offset;
    for (std::int32_t i = 0; i < s.count; ++i) {
      out << "  record " << i << " at offset " << at + std::int64_t(i) * info.record_size << "\n";
      printRecord(out, m, k, s.records.data() + std::size_t(i) * info.record_size, names);
    }
  }
}

Json wireJson(const Loaded& l) {
  Json w;
  w["packed"] = l.packed;
  w["codec"] = l.message.shape.codec ? 2011 : 2008;
  w["bytes"] = l.bytes;
  w["rawBytes"] = l.raw.size();
  return w;
}

// ---- check --------------------------------------------------------------------------------

struct Loss {
  std::string where, what;
};

bool anyNonzero(const unsigned char* p, std::size_t n) {
  return std::any_of(p, p + n, [](unsigned char b) { return b != 0; });
}

std::string explain(const trdcomp_field_info& f, int codec, int flag, const unsigned char* o,
                    const unsigned char* record) {
  switch (f.kind) {
    case TRDCOMP_KIND_INT32: {
      const std::int64_t v = loadI32(o);
      if (codec == 0 && flag != 0 && flag != 1)
        return "codec flag " + str(flag) + " leaves int32 fields out of the 2008 encoding";
      if (codec == 0 && flag == 0 && (v <= -(1 << 29) || v >= (1 << 29)))
        return "beyond the 29 bits of magnitude of the compact 32-bit form (flag 1 sends 64 bits)";
      break;
    }
    case TRDCOMP_KIND_INT64: {
      const std::int64_t v = loadI64(o);
      if (codec == 0 && (v == INT64_MIN || (v < 0 ? -v : v) >= (std::int64_t(1) << 60)))
        return "beyond the 60 bits of magnitude of the compact 64-bit form";
      if (codec == 1 && v <= -(std::int64_t(1) << 62))
        return "a negative value from -2^62 down loses bit 63 in the 2011 codec's ten-byte form";
      break;
    }
    case TRDCOMP_KIND_DOUBLE: {
      const double v = loadF64(o);
      const double scale = codec ? 1000.0 : 10000.0;
      const char* decimals = codec ? "three" : "four";
      if (!std::isfinite(v)) return "not a finite number: prices travel as scaled integers";
      const double units = v * scale;
      if (std::fabs(units) >= 9.2e18 || (codec == 0 && std::fabs(units) >= 1.15e18))
        return "too large for the codec's scaled integer";
      if (v < 0 && std::fabs(units - std::round(units)) < 1e-6)
        return "a negative price loses a unit: the codec adds half a unit, then truncates toward "
               "zero";
      return std::string("more decimals than the ") + decimals + " the " + codecName(codec) +
             " codec carries";
    }
    case TRDCOMP_KIND_TEXT:
    case TRDCOMP_KIND_SHORT_TEXT: {
      std::size_t len = 0;
      while (len < f.width && o[len]) ++len;
      if (len < f.width && anyNonzero(o + len, f.width - len))
        return "bytes after the text's terminator are not sent";
      if (f.kind == TRDCOMP_KIND_SHORT_TEXT && len >= f.width - 1)
        return "cut: a short string keeps at most " + str(f.width - 1) + " bytes";
      if (codec == 0 && f.kind == TRDCOMP_KIND_TEXT && len > f.cap)
        return "cut at the decoder's cap of " + str(f.cap) + " bytes";
      if (codec == 1 && f.text_form == TRDCOMP_TEXT_STOP_BIT &&
          std::any_of(o, o + len, [](unsigned char b) { return b >= 0x80; }))
        return "the 2011 codec sends this text as 7-bit characters";
      if (codec == 1 && f.text_form == TRDCOMP_TEXT_EXCHANGE)
        return "the 2011 codec sends an exchange code of at most three characters";
      if (len == f.width && codec == 1)
        return "fills its array: the 2011 codec keeps " + str(f.width - 1) +
               " bytes and a terminator";
      if (len == f.width)
        return "fills its array without a terminator and runs into the next field";
      break;
    }
    case TRDCOMP_KIND_COUNTED_BLOCK: {
      const std::int64_t used =
          std::clamp<std::int64_t>(loadI32(record + f.count_offset), 0, f.width);
      return "bytes past the used length " + str(used) + " (the int32 at offset " +
             str(f.count_offset) + ") are not sent";
    }
    default: break;
  }
  return "changed by the codec";
}

// Compares the fields of one record as sent and as restored.
void compareRecord(const Message& m, std::size_t section, const unsigned char* o,
                   const unsigned char* r, const std::string& where, std::int64_t at, int codec,
                   int flag, const Names& names, std::vector<Loss>& losses) {
  const SectionShape& s = m.shape.sections[section];
  const int sec = static_cast<int>(section);
  auto label = [&](const trdcomp_field_info& f, std::int64_t offset, const std::string& key) {
    const std::string name = names.name(m.shape.number, m.shape.direction, sec, key);
    return where + " field " + str(offset) + (name.empty() ? "" : " " + name) + " (" + kindName(f) +
           ", message offset " + str(at + offset) + ")";
  };
  auto compare = [&](const trdcomp_field_info& f, std::int64_t offset, const std::string& key) {
    if (std::equal(o + offset, o + offset + f.width, r + offset)) return;
    losses.push_back({label(f, offset, key), fieldText(f, o + offset) + " restores as " +
                                                 fieldText(f, r + offset) + ": " +
                                                 explain(f, codec, flag, o + offset, o)});
  };
  if (s.info.opaque) {
    if (!std::equal(o, o + s.info.record_size, r))
      losses.push_back({where, "the record's bytes are not sent (no record codec)"});
    return;
  }
  for (int i : topLevel(s)) {
    const trdcomp_field_info& f = s.fields[i];
    if (f.kind != TRDCOMP_KIND_GROUP) {
      compare(f, f.offset, str(f.offset));
      continue;
    }
    const std::int32_t count = loadI32(o + f.count_offset);
    for (std::uint32_t e = 0; e < f.repeat; ++e) {
      const std::int64_t entry = f.offset + std::int64_t(e) * f.stride;
      if ((count < 0 || e >= static_cast<std::uint32_t>(count)) &&
          anyNonzero(o + entry, f.stride)) {
        const std::string name = names.name(m.shape.number, m.shape.direction, sec, str(f.offset));
        losses.push_back({where + " field " + str(f.offset) + (name.empty() ? "" : " " + name) +
                              " entry " + str(e) + " (" + kindName(f) + ", message offset " +
                              str(at + entry) + ")",
                          "lies past the count " + str(count) + " (the int32 at offset " +
                              str(f.count_offset) + "): entries past the count are not sent"});
        continue;
      }
      for (std::uint32_t k = 1; k <= f.members; ++k) {
        const trdcomp_field_info& member = s.fields[i + k];
        compare(member, entry + member.offset, str(f.offset) + "+" + str(member.offset));
      }
    }
  }
}

// ---- stats --------------------------------------------------------------------------------

struct Tally {
  long long messages = 0, raw = 0, packed = 0;
};

}  // namespace

int inspect(const Options& o) {
  const Names names = Names::load(o.names);
  const Bytes input = readInput(o.input, o.hex);
  const Loaded l = loadBytes(o, input, names, true);
  printWarnings(std::cerr, l.warnings);
  if (o.json) {
    Json j = toJson(l.message, names);
    j["wire"] = wireJson(l);
    writeOutput(o.output, j.dump(2) + "\n");
    return 0;
  }
  std::ostringstream out;
  printInspect(out, l, input, names);
  writeOutput(o.output, out.str());
  return 0;
}

int pack(const Options& o) {
  const Names names = Names::load(o.names);
  const Loaded l = loadBytes(o, readInput(o.input, o.hex), names, false);
  printWarnings(std::cerr, l.warnings);
  writeOutput(o.output, packBytes(l.raw, l.message.shape.direction, o.codec, o.flag));
  return 0;
}

int restore(const Options& o) {
  const Names names = Names::load(o.names);
  const Bytes in = readInput(o.input, o.hex);
  if (in.empty()) throw Error("empty input");
  if (looksLikeJson(in)) throw Error("restore reads a packed message, not JSON (use pack)");
  const int direction = directionOf(o, in);
  Header::read(in.data(), in.size(), direction);  // refuses a message shorter than its header
  std::vector<Warning> warnings;
  const Bytes raw = restoreBytes(in, direction, o.flag, o.maxSize, 0, &warnings);
  const std::string text =
      o.json ? toJson(fromRestored(raw, direction, o.flag), names).dump(2) + "\n" : "";
  printWarnings(std::cerr, warnings);
  if (o.json)
    writeOutput(o.output, text);
  else
    writeOutput(o.output, raw);
  return 0;
}

int check(const Options& o) {
  const Names names = Names::load(o.names);
  const Loaded l = loadBytes(o, readInput(o.input, o.hex), names, false);
  printWarnings(std::cerr, l.warnings);
  const Message& m = l.message;
  const int codec = o.codec == 2008 ? 0 : o.codec == 2011 ? 1 : m.shape.codec;
  std::vector<Loss> losses;
  std::vector<std::string> notes;
  const std::string subject =
      std::string(directionName(m.shape.direction)) + " " + str(m.shape.number);

  if (m.shape.form == TRDCOMP_FORM_HEADER_ONLY && !m.sections.empty() && m.sections[0].count > 0)
    losses.push_back({"records", str(m.sections[0].count) + " records are not sent: request " +
                                     str(m.shape.number) + " packs as its header alone"});
  if (m.shape.form == TRDCOMP_FORM_NO_BODY && !m.body.empty())
    losses.push_back({"body", str(m.body.size()) + " bytes after the header are not sent: " +
                                  str(m.shape.number) + " has no body"});
  for (std::size_t k = 0; k < m.sections.size(); ++k)
    if (m.sections[k].senderSize != static_cast<std::int32_t>(m.recordSize(k)))
      notes.push_back("section " + str(k) + " states records of " + str(m.sections[k].senderSize) +
                      " bytes; the layout's are " + str(m.recordSize(k)));

  Bytes packed;
  try {
    packed = packBytes(l.raw, m.shape.direction, codec ? 2011 : 2008, o.flag);
  } catch (const Error& e) {
    // A message the codec cannot carry at all (a count beyond 16 bits, a section it lacks).
    losses.push_back(
        {"message" + (e.offset() >= 0 ? " (offset " + str(e.offset()) + ")" : std::string()),
         e.what()});
  }
  if (!packed.empty()) {
    const Message r =
        fromRestored(restoreBytes(packed, m.shape.direction, o.flag, 0), m.shape.direction, o.flag);
    // Header bytes that travel: the caller's, and the answer texts, up to the count.
    const bool request = m.header.isRequest();
    const std::size_t from = request ? offsetof(trdcomp_request_header, caller)
                                     : offsetof(trdcomp_answer_header, caller);
    const std::size_t to =
        request ? offsetof(trdcomp_request_header, count) : offsetof(trdcomp_answer_header, count);
    const Bytes sent = m.header.bytes(), back = r.header.bytes();
    for (std::size_t i = from; i < to; ++i)
      if (sent[i] != back[i]) {
        losses.push_back(
            {"header (offset " + str(i) + ")",
             "header bytes " + str(from) + " to " + str(to - 1) +
                 " do not come back as sent (the answer texts end at their first zero)"});
        break;
      }
    if (m.shape.form == TRDCOMP_FORM_RECORDS || m.shape.form == TRDCOMP_FORM_HEADER_ONLY) {
      for (std::size_t k = 0; k < m.sections.size() && m.shape.form == TRDCOMP_FORM_RECORDS; ++k) {
        const std::int64_t at = m.sections[k].offset;
        const Section& s = m.sections[k];
        const std::string sec =
            m.shape.direction == TRDCOMP_ANSWER ? "section " + str(k) + " " : "";
        if (k >= r.sections.size() || r.sections[k].count != s.count) {
          losses.push_back(
              {sec + "records", "the " + str(s.count) + " records come back as " +
                                    str(k < r.sections.size() ? r.sections[k].count : 0)});
          continue;
        }
        const std::size_t size = m.recordSize(k);
        for (std::int32_t i = 0; i < s.count; ++i) {
          const std::int64_t recordAt = at + std::int64_t(i) * static_cast<std::int64_t>(size);
          compareRecord(m, k, s.records.data() + i * size, r.sections[k].records.data() + i * size,
                        sec + "record " + str(i), recordAt, codec, o.flag, names, losses);
        }
      }
    }
  }

  std::ostringstream out;
  out << subject << " in the " << codecName(codec) << " codec"
      << (codec == 0 ? " (flag " + str(o.flag) + ")" : std::string()) << ": ";
  if (losses.empty())
    out << "every field survives\n";
  else
    out << losses.size() << (losses.size() == 1 ? " field does" : " fields do") << " not survive\n";
  for (const Loss& loss : losses) out << "  " << loss.where << ": " << loss.what << "\n";
  for (const std::string& note : notes) out << "  note: " << note << "\n";
  writeOutput(o.output, out.str());
  return losses.empty() ? 0 : kLosses;
}

int stats(const Options& o) {
  std::map<std::tuple<std::uint32_t, int, int>, Tally> rows;
  Tally total;
  for (const std::string& path : o.inputs) {
    const Bytes data = readInput(path, false);
    std::size_t pos = 0;
    for (long long index = 0; pos < data.size(); ++index) {
      const std::string where = path + ": message " + str(index) + " at offset " + str(pos) + ": ";
      try {
        if (data.size() - pos < 4)
          throw Error("the length prefix is cut off", static_cast<std::int64_t>(data.size()));
        const std::uint32_t length = loadU32(&data[pos]);
        if (length > data.size() - pos - 4)
          throw Error("the length prefix claims " + str(length) + " bytes, " +
                          str(data.size() - pos - 4) + " remain",
                      static_cast<std::int64_t>(pos));
        const Bytes message(data.begin() + static_cast<std::ptrdiff_t>(pos + 4),
                            data.begin() + static_cast<std::ptrdiff_t>(pos + 4 + length));
        const std::int64_t base = static_cast<std::int64_t>(pos + 4);
        Options one = o;
        const int direction = directionOf(one, message);
        const Header header = Header::read(message.data(), message.size(), direction);
        const bool packed = header.flags() & TRDCOMP_FLAG_PACKED;
        // Packed messages are measured restored, raw ones packed from the library's raw form.
        const Bytes restored = normalise(message, direction, o.flag, o.maxSize, nullptr, base);
        const std::size_t raw = packed ? restored.size() : message.size();
        const std::size_t small =
            packed ? message.size() : packBytes(restored, direction, 0, o.flag, base).size();
        Tally& t = rows[{header.function(), direction, header.codec() ? 2011 : 2008}];
        for (Tally* x : {&t, &total})
          ++x->messages, x->raw += static_cast<long long>(raw),
              x->packed += static_cast<long long>(small);
        pos += 4 + length;
      } catch (const Error& e) {
        throw Error(where + e.what(), e.offset());
      }
    }
  }
  auto ratio = [](const Tally& t) {
    return t.raw ? 100.0 * static_cast<double>(t.packed) / static_cast<double>(t.raw) : 0.0;
  };
  if (o.json) {
    Json j;
    j["rows"] = Json::array();
    for (const auto& [key, t] : rows) {
      const auto& [number, direction, codec] = key;
      j["rows"].push_back({{"function", number},
                           {"direction", directionName(direction)},
                           {"codec", codec},
                           {"messages", t.messages},
                           {"rawBytes", t.raw},
                           {"packedBytes", t.packed},
                           {"ratio", std::round(ratio(t) * 100) / 10000}});
    }
    j["total"] = {{"messages", total.messages},
                  {"rawBytes", total.raw},
                  {"packedBytes", total.packed},
                  {"ratio", std::round(ratio(total) * 100) / 10000}};
    writeOutput(o.output, j.dump(2) + "\n");
    return 0;
  }
  std::ostringstream out;
  char line[160];
  std::snprintf(line, sizeof line, "%8s  %-9s  %-5s  %8s  %12s  %12s  %7s\n", "function",
                "direction", "codec", "messages", "raw bytes", "packed bytes", "packed");
  out << line;
  for (const auto& [key, t] : rows) {
    const auto& [number, direction, codec] = key;
    std::snprintf(line, sizeof line, "%8u  %-9s  %-5d  %8lld  %12lld  %12lld  %6.1f%%\n", number,
                  directionName(direction), codec, t.messages, t.raw, t.packed, ratio(t));
    out << line;
  }
  std::snprintf(line, sizeof line, "%8s  %-9s  %-5s  %8lld  %12lld  %12lld  %6.1f%%\n", "total", "",
                "", total.messages, total.raw, total.packed, ratio(total));
  out << line;
  writeOutput(o.output, out.str());
  return 0;
}

}  // namespace trdcomp::tool
