// trdcomp explain: every byte of a message and what it encodes, as the library reads it.
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>

#include "commands.h"
#include "load.h"
#include "message.h"

namespace trdcomp::tool {
namespace {

std::string str(std::int64_t v) {
  return std::to_string(v);
}

using Explanation = std::unique_ptr<trdcomp_explanation, void (*)(void*)>;

Explanation explainBytes(const Bytes& in, int direction, int flag, long long maxSize) {
  trdcomp_explanation* out = nullptr;
  trdcomp_error err{};
  if (trdcomp_explain(in.data(), in.size(), direction, flag,
                      static_cast<std::size_t>(std::max(0LL, maxSize)), &out, &err))
    throw Error(err.message, err.offset < 0 ? -1 : err.offset);
  return Explanation(out, trdcomp_release);
}

const char* whatName(int what) {
  switch (what) {
    case TRDCOMP_ITEM_HEADER: return "header";
    case TRDCOMP_ITEM_HEADER_GAP: return "header gap";
    case TRDCOMP_ITEM_TABLE_SIZE: return "table size";
    case TRDCOMP_ITEM_TABLE_COUNT: return "table count";
    case TRDCOMP_ITEM_TABLE_RECORD_SIZE: return "table record size";
    case TRDCOMP_ITEM_TABLE_UNREAD: return "table unread";
    case TRDCOMP_ITEM_SECTION_COUNT: return "section count";
    case TRDCOMP_ITEM_DICTIONARY_SIZE: return "dictionary size";
    case TRDCOMP_ITEM_RECORD_LENGTH: return "record length";
    case TRDCOMP_ITEM_BLOCK_LENGTH: return "block length";
    case TRDCOMP_ITEM_PRESENCE_MAP: return "presence map";
    case TRDCOMP_ITEM_DICTIONARY_INDEX: return "dictionary index";
    case TRDCOMP_ITEM_FIELD: return "field";
    case TRDCOMP_ITEM_UNREAD: return "unread";
    case TRDCOMP_ITEM_TRAILING: return "trailing";
    case TRDCOMP_ITEM_BODY: return "body";
  }
  return "unknown";
}

const char* headerFieldName(int field) {
  switch (field) {
    case TRDCOMP_HEADER_LENGTH: return "header length";
    case TRDCOMP_HEADER_FUNCTION: return "function";
    case TRDCOMP_HEADER_FLAGS: return "flags";
    case TRDCOMP_HEADER_CALLER: return "caller data";
    case TRDCOMP_HEADER_SHORT_TEXT: return "short text";
    case TRDCOMP_HEADER_TEXT: return "text";
    case TRDCOMP_HEADER_COUNT: return "record count";
    case TRDCOMP_HEADER_SIZE: return "record size";
  }
  return "unknown";
}

// Bytes as hex; more than `shown` of them are cut, with their length.
std::string shortHex(const unsigned char* p, std::int64_t n, std::int64_t shown = 12) {
  if (n <= shown) return toHex(p, static_cast<std::size_t>(n));
  return toHex(p, static_cast<std::size_t>(shown)) + "... (" + str(n) + " bytes)";
}

class Explainer {
 public:
  Explainer(const trdcomp_explanation& e, const Bytes& in, const Names& names)
      : e_(e), in_(in), names_(names), header_(readHeader(e, in)) {
    const trdcomp_frame& f = e.frame;
    if (f.form == TRDCOMP_FORM_RECORDS || f.form == TRDCOMP_FORM_HEADER_ONLY)
      shape_ = describe(f.function, f.direction, f.codec == TRDCOMP_CODEC_2011 ? 1 : 0);
  }

  std::string line(const trdcomp_item& it) const {
    std::ostringstream s;
    char range[48];
    std::snprintf(range, sizeof range, "%8lld..%-8lld", static_cast<long long>(it.offset),
                  static_cast<long long>(it.offset + it.length));
    s << range << "  " << std::left;
    const std::string hex = shortHex(in_.data() + it.offset, it.length);
    s.width(26);
    s << hex << "  " << std::right << describeItem(it);
    if (it.overrun) s << " (reads " << it.overrun << " bytes past its end)";
    return s.str();
  }

  Json json(const trdcomp_item& it) const {
    Json j;
    j["offset"] = it.offset;
    j["length"] = it.length;
    j["what"] = whatName(it.what);
    j["hex"] = toHex(in_.data() + it.offset, static_cast<std::size_t>(it.length));
    if (it.section >= 0) j["section"] = it.section;
    if (it.record >= 0) j[it.unit == TRDCOMP_UNIT_ENTRY ? "entry" : "record"] = it.record;
    switch (it.what) {
      case TRDCOMP_ITEM_HEADER:
        j["field"] = headerFieldName(it.field);
        j["value"] = headerValueJson(it.field);
        break;
      case TRDCOMP_ITEM_FIELD: {
        const Field f = field(it);
        if (f.group) {
          j["fieldOffset"] = f.group->offset;
          j["groupEntry"] = it.entry;
          j["memberOffset"] = f.info.offset;
        } else {
          j["fieldOffset"] = f.info.offset;
        }
        j["kind"] = kindName(f.info);
        if (!f.name.empty()) j["name"] = f.name;
        j["value"] = fieldJson(f.info, e_.values + it.value_offset);
        break;
      }
      case TRDCOMP_ITEM_PRESENCE_MAP: {
        j["value"] = it.value;
        Json bits = Json::array();
        for (int b = 0; b < 7; ++b) {
          if (it.place_field[b] == -1) continue;
          Json bit;
          bit["bit"] = 0x40 >> b;
          bit["place"] = it.first_place + b;
          bit["present"] = (it.value & (0x40 >> b)) != 0;
          if (it.place_field[b] == -2) {
            bit["field"] = "dictionary index";
          } else {
            const Field f = placeField(it, b);
            bit["fieldOffset"] = f.group ? f.group->offset : f.info.offset;
            if (f.group) {
              bit["groupEntry"] = it.place_entry[b];
              bit["memberOffset"] = f.info.offset;
            }
            bit["kind"] = kindName(f.info);
            if (!f.name.empty()) bit["name"] = f.name;
          }
          bits.push_back(std::move(bit));
        }
        j["bits"] = std::move(bits);
        break;
      }
      case TRDCOMP_ITEM_TABLE_SIZE:
      case TRDCOMP_ITEM_TABLE_COUNT:
      case TRDCOMP_ITEM_TABLE_RECORD_SIZE:
      case TRDCOMP_ITEM_SECTION_COUNT:
      case TRDCOMP_ITEM_DICTIONARY_SIZE:
      case TRDCOMP_ITEM_RECORD_LENGTH:
      case TRDCOMP_ITEM_BLOCK_LENGTH:
      case TRDCOMP_ITEM_DICTIONARY_INDEX: j["value"] = it.value; break;
      default: break;
    }
    if (it.overrun) j["overrun"] = it.overrun;
    return j;
  }

 private:
  struct Field {
    trdcomp_field_info info{};
    const trdcomp_field_info* group = nullptr;  // the group of a member
    std::string name;
  };

  static Header readHeader(const trdcomp_explanation& e, const Bytes& in) {
    // The restored message begins with the header as the library took it; the input's own
    // header may be cut short by a header length under the fixed size.
    Header h = Header::read(e.values, e.values_length, e.frame.direction);
    if (in.size() >= Header::size(e.frame.direction))
      h = Header::read(in.data(), in.size(), e.frame.direction);
    return h;
  }

  const SectionShape* section(int s) const {
    if (s < 0 || s >= static_cast<int>(shape_.sections.size())) return nullptr;
    return &shape_.sections[static_cast<std::size_t>(s)];
  }

  Field fieldAt(int s, int index) const {
    const SectionShape* shape = section(s);
    if (!shape || index < 0 || index >= static_cast<int>(shape->fields.size()))
      throw Error("the library names field " + str(index) + " of section " + str(s) +
                  ", which the layout does not have");
    Field f;
    f.info = shape->fields[static_cast<std::size_t>(index)];
    std::string key = str(f.info.offset);
    if (f.info.group >= 0) {
      f.group = &shape->fields[static_cast<std::size_t>(f.info.group)];
      key = str(f.group->offset) + "+" + key;
    }
    f.name = names_.name(e_.frame.function, e_.frame.direction, s, key);
    return f;
  }
  Field field(const trdcomp_item& it) const { return fieldAt(it.section, it.field); }
  Field placeField(const trdcomp_item& it, int bit) const {
    return fieldAt(it.section, it.place_field[bit]);
  }

  std::string fieldLabel(const Field& f, std::int32_t entry) const {
    std::ostringstream s;
    s << "field ";
    if (f.group)
      s << f.group->offset << "[" << entry << "]+" << f.info.offset;
    else
      s << f.info.offset;
    s << " " << kindName(f.info);
    if (!f.name.empty()) s << " " << f.name;
    return s.str();
  }

  std::string whose(const trdcomp_item& it) const {
    std::string s = "section " + str(it.section);
    if (it.record >= 0)
      s += (it.unit == TRDCOMP_UNIT_ENTRY ? " entry " : " record ") + str(it.record);
    return s;
  }

  std::string headerValue(int field) const {
    const Header& h = header_;
    switch (field) {
      case TRDCOMP_HEADER_LENGTH: return str(h.length());
      case TRDCOMP_HEADER_FUNCTION: return str(h.function());
      case TRDCOMP_HEADER_FLAGS: return flagsText(h.flags());
      case TRDCOMP_HEADER_CALLER: {
        const std::string hex = toHex(h.caller(), h.callerSize(), true);
        return hex.empty() ? "(zeros)" : hex;
      }
      case TRDCOMP_HEADER_SHORT_TEXT:
        return escapeText(reinterpret_cast<const unsigned char*>(h.answer.short_text),
                          sizeof h.answer.short_text);
      case TRDCOMP_HEADER_TEXT:
        return escapeText(reinterpret_cast<const unsigned char*>(h.answer.text),
                          sizeof h.answer.text);
      case TRDCOMP_HEADER_COUNT: return str(h.count());
      case TRDCOMP_HEADER_SIZE: return str(h.recordSize());
    }
    return "";
  }

  Json headerValueJson(int field) const {
    const Header& h = header_;
    switch (field) {
      case TRDCOMP_HEADER_LENGTH: return h.length();
      case TRDCOMP_HEADER_FUNCTION: return h.function();
      case TRDCOMP_HEADER_FLAGS: return h.flags();
      case TRDCOMP_HEADER_CALLER: return toHex(h.caller(), h.callerSize(), true);
      case TRDCOMP_HEADER_SHORT_TEXT:
        return bytesToText(reinterpret_cast<const unsigned char*>(h.answer.short_text),
                           sizeof h.answer.short_text);
      case TRDCOMP_HEADER_TEXT:
        return bytesToText(reinterpret_cast<const unsigned char*>(h.answer.text),
                           sizeof h.answer.text);
      case TRDCOMP_HEADER_COUNT: return h.count();
      case TRDCOMP_HEADER_SIZE: return h.recordSize();
    }
    return nullptr;
  }

  std::string describeItem(const trdcomp_item& it) const {
    const std::string v = str(it.value);
    switch (it.what) {
      case TRDCOMP_ITEM_HEADER:
        return std::string("header ") + headerFieldName(it.field) + ": " + headerValue(it.field);
      case TRDCOMP_ITEM_HEADER_GAP:
        return "header gap: skipped, up to the header length " + str(header_.length());
      case TRDCOMP_ITEM_TABLE_SIZE: return "section table size: " + v;
      case TRDCOMP_ITEM_TABLE_COUNT:
        return "section table, section " + str(it.section) + " count: " + v;
      case TRDCOMP_ITEM_TABLE_RECORD_SIZE:
        return "section table, section " + str(it.section) + " record size: " + v;
      case TRDCOMP_ITEM_TABLE_UNREAD: return "section table pairs that are not read";
      case TRDCOMP_ITEM_SECTION_COUNT: return "section " + str(it.section) + " count: " + v;
      case TRDCOMP_ITEM_DICTIONARY_SIZE:
        return "section " + str(it.section) + " dictionary entries: " + v;
      case TRDCOMP_ITEM_RECORD_LENGTH: return whose(it) + " length: " + v;
      case TRDCOMP_ITEM_BLOCK_LENGTH: return whose(it) + " block length: " + v;
      case TRDCOMP_ITEM_PRESENCE_MAP: {
        std::string s = whose(it) + " presence map:";
        for (int b = 0; b < 7; ++b) {
          if (it.place_field[b] == -1) continue;
          char bit[8];
          std::snprintf(bit, sizeof bit, "0x%02x", 0x40 >> b);
          s += std::string(" [") + bit + " ";
          s += it.place_field[b] == -2 ? std::string("dictionary index")
                                       : fieldLabel(placeField(it, b), it.place_entry[b]);
          s += (it.value & (0x40 >> b)) ? ": present]" : ": absent]";
        }
        return s;
      }
      case TRDCOMP_ITEM_DICTIONARY_INDEX: return whose(it) + " dictionary index: " + v;
      case TRDCOMP_ITEM_FIELD: {
        const Field f = field(it);
        return whose(it) + " " + fieldLabel(f, it.entry) + " = " +
               fieldText(f.info, e_.values + it.value_offset);
      }
      case TRDCOMP_ITEM_UNREAD: return "unread: " + str(it.length) + " bytes that no field reads";
      case TRDCOMP_ITEM_TRAILING:
        return "trailing: " + str(it.length) + " bytes after the message, not read";
      case TRDCOMP_ITEM_BODY: return "body: " + str(it.length) + " bytes that travel as they are";
    }
    return whatName(it.what);
  }

  const trdcomp_explanation& e_;
  const Bytes& in_;
  const Names& names_;
  Header header_;
  Shape shape_;
};

}  // namespace

int explain(const Options& o) {
  const Names names = Names::load(o.names);
  const Bytes in = readInput(o.input, o.hex);
  if (in.empty()) throw Error("empty input");
  if (looksLikeJson(in)) throw Error("explain reads a message's bytes, not JSON (pack it first)");
  const int direction = directionOf(o, in);
  Header::read(in.data(), in.size(), direction);  // refuses a message shorter than its header
  // The header lines show the input's own flags; the library walks a raw 2011 answer as 2008.
  const Explanation e = explainBytes(with2008Nibble(in, direction), direction, o.flag, o.maxSize);
  // The items cover the input once, in order; a gap or an overlap would mislead whoever reads
  // the listing, so it is refused rather than printed.
  std::int64_t at = 0;
  for (std::size_t i = 0; i < e->item_count; ++i) {
    const trdcomp_item& it = e->items[i];
    if (it.offset != at || it.length < 0 ||
        it.offset + it.length > static_cast<std::int64_t>(in.size()))
      throw Error("the library's explanation skips or repeats bytes at item " +
                      str(static_cast<std::int64_t>(i)),
                  at);
    at += it.length;
  }
  if (at != static_cast<std::int64_t>(in.size()))
    throw Error("the library's explanation ends before the input does", at);
  const Explainer explainer(*e, in, names);
  std::string text;
  if (o.json) {
    Json items = Json::array();
    for (std::size_t i = 0; i < e->item_count; ++i) items.push_back(explainer.json(e->items[i]));
    text = items.dump(2) + "\n";
  } else {
    const trdcomp_frame& f = e->frame;
    std::ostringstream out;
    out << directionName(f.direction) << " " << f.function << ", "
        << codecName(f.codec == TRDCOMP_CODEC_2011 ? 1 : 0) << " codec, "
        << (f.packed ? "packed" : "raw") << ", " << in.size() << " bytes\n";
    for (std::size_t i = 0; i < e->item_count; ++i) out << explainer.line(e->items[i]) << "\n";
    text = out.str();
  }
  writeOutput(o.output, text);
  return 0;
}

}  // namespace trdcomp::tool
