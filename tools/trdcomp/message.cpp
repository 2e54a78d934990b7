#include "message.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>

namespace trdcomp::tool {

namespace {

std::string str(std::int64_t v) {
  return std::to_string(v);
}

std::string memberKey(const trdcomp_field_info& group, const trdcomp_field_info& member) {
  return str(group.offset) + "+" + str(member.offset);
}

}  // namespace

// Top-level fields in offset order, each with its index in the layout; members follow their
// group in the layout and are reached from it.
std::vector<int> topLevel(const SectionShape& s) {
  std::vector<int> order;
  for (int i = 0; i < static_cast<int>(s.fields.size()); ++i) {
    order.push_back(i);
    if (s.fields[i].kind == TRDCOMP_KIND_GROUP) i += static_cast<int>(s.fields[i].members);
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](int a, int b) { return s.fields[a].offset < s.fields[b].offset; });
  return order;
}

const char* directionName(int direction) {
  return direction == TRDCOMP_REQUEST ? "request" : "answer";
}

const char* codecName(int codec) {
  return codec ? "2011 Fast" : "2008";
}

Shape describe(std::uint32_t number, int direction, int codec) {
  trdcomp_message_info info;
  const int status =
      trdcomp_describe(number, direction, codec ? TRDCOMP_CODEC_2011 : TRDCOMP_CODEC_2008, &info);
  if (status == TRDCOMP_ERROR_UNKNOWN_FUNCTION)
    throw Error("unknown function number " + str(number), 4);
  if (status) throw Error("no description of function number " + str(number));
  Shape shape;
  shape.number = number;
  shape.direction = direction;
  shape.codec = codec;
  shape.form = info.form;
  for (int s = 0; s < info.section_count; ++s) {
    SectionShape section;
    section.info = info.sections[s];
    section.fields.resize(section.info.field_count);
    for (std::uint32_t i = 0; i < section.info.field_count; ++i)
      trdcomp_field(number, direction, codec ? TRDCOMP_CODEC_2011 : TRDCOMP_CODEC_2008, s,
                    static_cast<int>(i), &section.fields[i]);
    shape.sections.push_back(std::move(section));
  }
  return shape;
}

// ---- headers ------------------------------------------------------------------------------

Header Header::read(const unsigned char* p, std::size_t n, int direction) {
  Header h;
  h.direction = direction;
  const std::size_t need = size(direction);
  if (n < need)
    throw Error("truncated message: " + str(static_cast<std::int64_t>(n)) + " bytes, a " +
                    directionName(direction) + " header is " + str(need),
                static_cast<std::int64_t>(n));
  if (h.isRequest())
    std::memcpy(&h.request, p, need);
  else
    std::memcpy(&h.answer, p, need);
  return h;
}

Header Header::blank(int direction) {
  Header h;
  h.direction = direction;
  h.length() = static_cast<std::int32_t>(size(direction));
  return h;
}

Bytes Header::bytes() const {
  Bytes out(size(direction));
  if (isRequest())
    std::memcpy(out.data(), &request, out.size());
  else
    std::memcpy(out.data(), &answer, out.size());
  return out;
}

std::string flagsText(std::uint8_t f) {
  std::ostringstream s;
  s << "0x" << std::hex << std::setw(2) << std::setfill('0') << int(f) << std::dec << ":";
  if (f & TRDCOMP_FLAG_PACKED) s << " records packed,";
  if (f & TRDCOMP_FLAG_SECTION_TABLE) s << " section table,";
  constexpr unsigned kOther =
      0xFFu & ~(TRDCOMP_FLAG_PACKED | TRDCOMP_FLAG_SECTION_TABLE | TRDCOMP_FLAG_NIBBLE_MASK);
  if (f & kOther) s << " bits 2-3 " << ((f & kOther) >> 2) << ",";
  const int nibble = (f & TRDCOMP_FLAG_NIBBLE_MASK) >> TRDCOMP_FLAG_NIBBLE_SHIFT;
  s << " codec nibble " << nibble << " (" << codecName(nibble ? 1 : 0) << ")";
  return s.str();
}

// ---- the library on byte vectors ----------------------------------------------------------

namespace {

Bytes take(void* data, std::size_t length) {
  std::unique_ptr<void, void (*)(void*)> owner(data, trdcomp_release);
  const auto* p = static_cast<const unsigned char*>(data);
  return Bytes(p, p + length);
}

Error failure(const trdcomp_error& err, std::int64_t base = 0) {
  return Error(err.message, err.offset < 0 ? -1 : base + err.offset);
}

}  // namespace

Bytes packBytes(const Bytes& raw, int direction, int codec, int flag, std::int64_t base) {
  void* out = nullptr;
  std::size_t length = 0;
  trdcomp_error err{};
  const int c = codec == 2008   ? TRDCOMP_CODEC_2008
                : codec == 2011 ? TRDCOMP_CODEC_2011
                                : TRDCOMP_CODEC_HEADER;
  if (trdcomp_pack(raw.data(), raw.size(), direction, c, flag, &out, &length, &err))
    throw failure(err, base);
  return take(out, length);
}

Bytes restoreBytes(const Bytes& message, int direction, int flag, long long maxSize,
                   std::int64_t base, std::vector<Warning>* warnings) {
  void* out = nullptr;
  std::size_t length = 0;
  trdcomp_error err{};
  // A few warnings say all there is to say; the count tells how many more there were.
  trdcomp_warning found[16];
  std::size_t count = 0;
  if (trdcomp_restore_ex(message.data(), message.size(), direction, flag,
                         static_cast<std::size_t>(std::max(0LL, maxSize)), &out, &length, found,
                         std::size(found), &count, &err))
    throw failure(err, base);
  Bytes raw = take(out, length);
  if (warnings) {
    for (std::size_t i = 0; i < std::min(count, std::size(found)); ++i)
      warnings->push_back({found[i].message, found[i].offset < 0 ? -1 : base + found[i].offset});
    if (count > std::size(found))
      warnings->push_back(
          {str(static_cast<std::int64_t>(count - std::size(found))) + " more warnings left out",
           -1});
  }
  return raw;
}

trdcomp_frame frameOf(const Bytes& message, int direction, int flag) {
  trdcomp_frame frame{};
  trdcomp_error err{};
  if (trdcomp_frame_of(message.data(), message.size(), direction, flag, &frame, nullptr, 0, nullptr,
                       &err))
    throw failure(err);
  return frame;
}

namespace {

// The library reads an answer of the 2011 codec as blocks whatever flags bit 0 says: a receiver
// never holds a plain one. The raw answers of this tool (what trdcomp_pack reads and a restore
// gives) have plain records behind a section table, the form 2008 answers have, and their
// sections share the 2008 record sizes. Such an answer is walked as that 2008 form.
bool plain2011Answer(const Bytes& in, int direction) {
  if (direction != TRDCOMP_ANSWER || in.size() < Header::size(direction)) return false;
  const Header h = Header::read(in.data(), in.size(), direction);
  return h.codec() && !(h.flags() & TRDCOMP_FLAG_PACKED);
}

}  // namespace

Bytes with2008Nibble(Bytes in, int direction) {
  if (!plain2011Answer(in, direction)) return in;
  Header h = Header::read(in.data(), in.size(), direction);
  h.flags() &= static_cast<std::uint8_t>(~TRDCOMP_FLAG_NIBBLE_MASK);
  const Bytes header = h.bytes();
  std::copy(header.begin(), header.end(), in.begin());
  return in;
}

Bytes normalise(const Bytes& in, int direction, int flag, long long maxSize,
                std::vector<Warning>* warnings, std::int64_t base) {
  if (!plain2011Answer(in, direction))
    return restoreBytes(in, direction, flag, maxSize, base, warnings);
  Bytes raw = restoreBytes(with2008Nibble(in, direction), direction, flag, maxSize, base, warnings);
  Header h = Header::read(raw.data(), raw.size(), direction);
  h.flags() = static_cast<std::uint8_t>(
      (h.flags() & ~TRDCOMP_FLAG_NIBBLE_MASK) |
      (in[offsetof(trdcomp_answer_header, flags)] & TRDCOMP_FLAG_NIBBLE_MASK));
  const Bytes header = h.bytes();
  std::copy(header.begin(), header.end(), raw.begin());
  return raw;
}

trdcomp_frame rawFrameOf(const Bytes& raw, int direction, int flag) {
  return plain2011Answer(raw, direction) ? frameOf(with2008Nibble(raw, direction), direction, flag)
                                         : frameOf(raw, direction, flag);
}

Message fromRestored(const Bytes& raw, int direction, int flag) {
  const trdcomp_frame frame = rawFrameOf(raw, direction, flag);
  Message m;
  m.header = Header::read(raw.data(), raw.size(), frame.direction);
  m.shape = describe(frame.function, frame.direction, m.header.codec());
  if (m.shape.form == TRDCOMP_FORM_NO_BODY || m.shape.form == TRDCOMP_FORM_PASS_THROUGH) {
    m.body.assign(raw.begin() + static_cast<std::ptrdiff_t>(Header::size(frame.direction)),
                  raw.end());
    return m;
  }
  if (frame.section_count > static_cast<int>(m.shape.sections.size()))
    throw Error("the library walks " + str(frame.section_count) + " sections, " +
                directionName(direction) + " " + str(frame.function) + " has " +
                str(static_cast<std::int64_t>(m.shape.sections.size())));
  for (int k = 0; k < frame.section_count; ++k) {
    const trdcomp_section_frame& f = frame.sections[k];
    Section s;
    s.count = f.count;
    s.senderSize = static_cast<std::int32_t>(f.record_size);
    s.offset = f.restored_offset;
    const std::int64_t bytes = std::int64_t(f.count) * f.record_size;
    if (f.count < 0 || f.restored_offset < 0 ||
        f.restored_offset + bytes > static_cast<std::int64_t>(raw.size()))
      throw Error("section " + str(k) + ": " + str(f.count) + " records of " + str(f.record_size) +
                  " bytes from offset " + str(f.restored_offset) +
                  " lie outside the restored message of " +
                  str(static_cast<std::int64_t>(raw.size())) + " bytes");
    s.records.assign(raw.begin() + f.restored_offset, raw.begin() + f.restored_offset + bytes);
    m.sections.push_back(std::move(s));
  }
  return m;
}

Bytes serialise(const Message& m) {
  Header h = m.header;
  h.flags() &= static_cast<std::uint8_t>(~TRDCOMP_FLAG_PACKED);
  h.length() = static_cast<std::int32_t>(Header::size(h.direction));
  if (m.shape.form == TRDCOMP_FORM_NO_BODY || m.shape.form == TRDCOMP_FORM_PASS_THROUGH) {
    Bytes out = h.bytes();
    out.insert(out.end(), m.body.begin(), m.body.end());
    return out;
  }
  const std::size_t n = m.sections.size();
  h.count() = n ? m.sections[0].count : 0;
  h.recordSize() = static_cast<std::int32_t>(m.recordSize(0));
  Bytes table;
  if (m.table()) {
    // A raw answer of more than one section lists them after its header: the table's size,
    // then a count and a record size per section.
    h.flags() |= TRDCOMP_FLAG_SECTION_TABLE;
    std::vector<std::int32_t> words{static_cast<std::int32_t>(4 + 8 * n)};
    for (std::size_t k = 0; k < n; ++k) {
      words.push_back(m.sections[k].count);
      words.push_back(static_cast<std::int32_t>(m.recordSize(k)));
    }
    table.resize(4 * words.size());
    for (std::size_t i = 0; i < words.size(); ++i)
      storeU32(&table[4 * i], static_cast<std::uint32_t>(words[i]));
  } else {
    h.flags() &= static_cast<std::uint8_t>(~TRDCOMP_FLAG_SECTION_TABLE);
  }
  Bytes out = h.bytes();
  out.insert(out.end(), table.begin(), table.end());
  for (const Section& s : m.sections) out.insert(out.end(), s.records.begin(), s.records.end());
  return out;
}

// ---- names --------------------------------------------------------------------------------

Names Names::load(const std::string& path) {
  Names n;
  if (path.empty()) return n;
  std::ifstream file(path);
  if (!file) throw Error("names file " + path + ": cannot open it");
  Json j;
  try {
    j = Json::parse(file);
  } catch (const Json::parse_error& e) {
    throw Error("names file " + path + ": malformed JSON: " + e.what(),
                static_cast<std::int64_t>(e.byte));
  }
  const std::string shape =
      "names file " + path +
      ": expected {\"NUMBER\": {\"request\"|\"answer\": {\"SECTION\": {\"OFFSET\": \"name\"}}}}";
  if (!j.is_object()) throw Error(shape);
  for (const auto& [number, directions] : j.items()) {
    if (!directions.is_object() || number.empty() ||
        number.find_first_not_of("0123456789") != std::string::npos)
      throw Error(shape);
    for (const auto& [direction, sections] : directions.items()) {
      if ((direction != "request" && direction != "answer") || !sections.is_object())
        throw Error(shape);
      for (const auto& [section, fields] : sections.items()) {
        if (!fields.is_object() || section.empty() ||
            section.find_first_not_of("012") != std::string::npos)
          throw Error(shape);
        auto& map = n.names_[{static_cast<std::uint32_t>(std::stoul(number)),
                              direction == "request" ? TRDCOMP_REQUEST : TRDCOMP_ANSWER,
                              std::stoi(section)}];
        for (const auto& [key, name] : fields.items()) {
          if (!name.is_string()) throw Error(shape);
          map[key] = name.get<std::string>();
        }
      }
    }
  }
  return n;
}

std::string Names::name(std::uint32_t number, int direction, int section,
                        const std::string& key) const {
  auto it = names_.find({number, direction, section});
  if (it == names_.end()) return "";
  auto f = it->second.find(key);
  return f == it->second.end() ? "" : f->second;
}

std::string Names::key(std::uint32_t number, int direction, int section,
                       const std::string& name) const {
  auto it = names_.find({number, direction, section});
  if (it == names_.end()) return "";
  for (const auto& [key, n] : it->second)
    if (n == name) return key;
  return "";
}

// ---- field values -------------------------------------------------------------------------

std::string kindName(const trdcomp_field_info& f) {
  switch (f.kind) {
    case TRDCOMP_KIND_CHAR: return "char";
    case TRDCOMP_KIND_TEXT: return "text[" + str(f.width) + "]";
    case TRDCOMP_KIND_SHORT_TEXT: return "short[" + str(f.width) + "]";
    case TRDCOMP_KIND_BLOCK: return "block[" + str(f.width) + "]";
    case TRDCOMP_KIND_INT32: return "int32";
    case TRDCOMP_KIND_INT64: return "int64";
    case TRDCOMP_KIND_DOUBLE: return "double";
    case TRDCOMP_KIND_COUNTED_BLOCK: return "counted[" + str(f.width) + "]";
    case TRDCOMP_KIND_GROUP: return "group[" + str(f.repeat) + "x" + str(f.stride) + "]";
  }
  return "?";
}

std::string fieldText(const trdcomp_field_info& f, const unsigned char* at) {
  switch (f.kind) {
    case TRDCOMP_KIND_CHAR: {
      std::string s = *at ? escapeText(at, 1) : "\"\\x00\"";
      s.front() = s.back() = '\'';
      return s + " (" + str(*at) + ")";
    }
    case TRDCOMP_KIND_TEXT:
    case TRDCOMP_KIND_SHORT_TEXT: return escapeText(at, f.width);
    case TRDCOMP_KIND_BLOCK:
    case TRDCOMP_KIND_COUNTED_BLOCK: {
      std::string hex = toHex(at, f.width, true);
      if (hex.empty()) return "(zeros)";
      constexpr std::size_t kShown = 64;
      if (hex.size() > 2 * kShown)
        return hex.substr(0, 2 * kShown) + "... (" + str(hex.size() / 2) +
               " bytes to the last nonzero)";
      return hex;
    }
    case TRDCOMP_KIND_INT32: return str(loadI32(at));
    case TRDCOMP_KIND_INT64: return str(loadI64(at));
    case TRDCOMP_KIND_DOUBLE: return formatDouble(loadF64(at));
  }
  return "";
}

Json fieldJson(const trdcomp_field_info& f, const unsigned char* at) {
  switch (f.kind) {
    case TRDCOMP_KIND_CHAR: return bytesToText(at, 1);
    case TRDCOMP_KIND_TEXT:
    case TRDCOMP_KIND_SHORT_TEXT: return bytesToText(at, f.width);
    case TRDCOMP_KIND_BLOCK:
    case TRDCOMP_KIND_COUNTED_BLOCK: return toHex(at, f.width, true);
    case TRDCOMP_KIND_INT32: return loadI32(at);
    case TRDCOMP_KIND_INT64: return loadI64(at);
    case TRDCOMP_KIND_DOUBLE: {
      const double v = loadF64(at);
      if (std::isfinite(v)) return v;
      return formatDouble(v);
    }
  }
  return nullptr;
}

namespace {

template <class T>
T integer(const Json& v, const std::string& what) {
  if (v.is_number_unsigned()) {
    const auto u = v.get<std::uint64_t>();
    if (u > static_cast<std::uint64_t>(std::numeric_limits<T>::max()))
      throw Error(what + ": " + std::to_string(u) + " is out of range for its field");
    return static_cast<T>(u);
  }
  if (v.is_number_integer()) {
    const auto i = v.get<std::int64_t>();
    if (i < std::numeric_limits<T>::min() || i > std::numeric_limits<T>::max())
      throw Error(what + ": " + std::to_string(i) + " is out of range for its field");
    return static_cast<T>(i);
  }
  throw Error(what + ": expected an integer, got " + v.dump());
}

void fieldFromJson(const trdcomp_field_info& f, const Json& v, unsigned char* at,
                   const std::string& what) {
  switch (f.kind) {
    case TRDCOMP_KIND_CHAR:
      if (v.is_number()) {
        *at = static_cast<unsigned char>(integer<std::uint8_t>(v, what));
        return;
      }
      if (!v.is_string()) throw Error(what + ": expected a one-character string or a byte value");
      *at = textToBytes(v.get<std::string>(), 1, what)[0];
      return;
    case TRDCOMP_KIND_TEXT:
    case TRDCOMP_KIND_SHORT_TEXT: {
      if (!v.is_string()) throw Error(what + ": expected a string");
      const Bytes b = textToBytes(v.get<std::string>(), f.width, what);
      std::copy(b.begin(), b.end(), at);
      return;
    }
    case TRDCOMP_KIND_BLOCK:
    case TRDCOMP_KIND_COUNTED_BLOCK: {
      if (!v.is_string()) throw Error(what + ": expected a hex string");
      const Bytes b = fromHex(v.get<std::string>(), what, f.width);
      std::copy(b.begin(), b.end(), at);
      return;
    }
    case TRDCOMP_KIND_INT32:
      storeU32(at, static_cast<std::uint32_t>(integer<std::int32_t>(v, what)));
      return;
    case TRDCOMP_KIND_INT64: storeI64(at, integer<std::int64_t>(v, what)); return;
    case TRDCOMP_KIND_DOUBLE: {
      double d;
      if (v.is_number()) {
        d = v.get<double>();
      } else if (v == "nan") {
        d = std::numeric_limits<double>::quiet_NaN();
      } else if (v == "inf" || v == "-inf") {
        d = v == "inf" ? std::numeric_limits<double>::infinity()
                       : -std::numeric_limits<double>::infinity();
      } else {
        throw Error(what + ": expected a number (or \"nan\", \"inf\", \"-inf\")");
      }
      storeF64(at, d);
      return;
    }
  }
}

bool allZero(const unsigned char* p, std::size_t n) {
  return std::all_of(p, p + n, [](unsigned char b) { return b == 0; });
}

Json recordJson(const Message& m, std::size_t section, const unsigned char* rec,
                const Names& names) {
  const SectionShape& s = m.shape.sections[section];
  if (s.info.opaque) return toHex(rec, s.info.record_size, true);
  const int sec = static_cast<int>(section);
  auto keyOf = [&](const std::string& key) {
    const std::string name = names.name(m.shape.number, m.shape.direction, sec, key);
    return name.empty() ? key : name;
  };
  Json out = Json::object();
  for (int i : topLevel(s)) {
    const trdcomp_field_info& f = s.fields[i];
    if (f.kind != TRDCOMP_KIND_GROUP) {
      out[keyOf(str(f.offset))] = fieldJson(f, rec + f.offset);
      continue;
    }
    // Entries up to the last that holds anything; the rest are zero.
    std::uint32_t used = f.repeat;
    while (used > 0 && allZero(rec + f.offset + (used - 1) * f.stride, f.stride)) --used;
    Json entries = Json::array();
    for (std::uint32_t e = 0; e < used; ++e) {
      Json entry = Json::object();
      for (std::uint32_t k = 1; k <= f.members; ++k) {
        const trdcomp_field_info& member = s.fields[i + k];
        const std::string name =
            names.name(m.shape.number, m.shape.direction, sec, memberKey(f, member));
        entry[name.empty() ? str(member.offset) : name] =
            fieldJson(member, rec + f.offset + e * f.stride + member.offset);
      }
      entries.push_back(std::move(entry));
    }
    out[keyOf(str(f.offset))] = std::move(entries);
  }
  return out;
}

// The layout field that a JSON key names (a name, or the offset in decimal): its index.
int findField(const SectionShape& s, const std::vector<int>& candidates, const std::string& key,
              const std::string& nameKey, const trdcomp_field_info* group) {
  for (int i : candidates) {
    const std::string k = str(s.fields[i].offset);
    if (key == k) return i;
    if (!nameKey.empty() && nameKey == (group ? memberKey(*group, s.fields[i]) : k)) return i;
  }
  return -1;
}

void recordFromJson(const Message& m, std::size_t section, const Json& j, unsigned char* rec,
                    const Names& names, const std::string& where) {
  const SectionShape& s = m.shape.sections[section];
  if (s.info.opaque) {
    if (!j.is_string()) throw Error(where + ": expected a hex string (this record has no fields)");
    const Bytes b = fromHex(j.get<std::string>(), where, s.info.record_size);
    std::copy(b.begin(), b.end(), rec);
    return;
  }
  if (!j.is_object()) throw Error(where + ": expected an object of fields");
  const int sec = static_cast<int>(section);
  const std::vector<int> top = topLevel(s);
  for (const auto& [key, value] : j.items()) {
    const std::string what = where + ".\"" + key + "\"";
    const int i =
        findField(s, top, key, names.key(m.shape.number, m.shape.direction, sec, key), nullptr);
    if (i < 0)
      throw Error(what + ": no such field in " + directionName(m.shape.direction) + " " +
                  str(m.shape.number) + " (keys are field offsets or names from --names)");
    const trdcomp_field_info& f = s.fields[i];
    const std::string fieldWhat = what + " (offset " + str(f.offset) + ", " + kindName(f) + ")";
    if (f.kind != TRDCOMP_KIND_GROUP) {
      fieldFromJson(f, value, rec + f.offset, fieldWhat);
      continue;
    }
    if (!value.is_array()) throw Error(fieldWhat + ": expected an array of entries");
    if (value.size() > f.repeat)
      throw Error(fieldWhat + ": " + str(value.size()) + " entries, the group holds " +
                  str(f.repeat));
    std::vector<int> members;
    for (std::uint32_t k = 1; k <= f.members; ++k) members.push_back(i + static_cast<int>(k));
    for (std::size_t e = 0; e < value.size(); ++e) {
      const std::string entryWhat = fieldWhat + "[" + str(e) + "]";
      if (!value[e].is_object()) throw Error(entryWhat + ": expected an object of fields");
      for (const auto& [mkey, mvalue] : value[e].items()) {
        const int k = findField(s, members, mkey,
                                names.key(m.shape.number, m.shape.direction, sec, mkey), &f);
        if (k < 0) throw Error(entryWhat + ".\"" + mkey + "\": no such member");
        fieldFromJson(s.fields[k], mvalue, rec + f.offset + e * f.stride + s.fields[k].offset,
                      entryWhat + ".\"" + mkey + "\"");
      }
    }
  }
}

void expectKeys(const Json& j, std::initializer_list<const char*> keys, const std::string& where) {
  for (auto it = j.begin(); it != j.end(); ++it) {
    const std::string key = it.key();
    if (std::none_of(keys.begin(), keys.end(), [&](const char* k) { return key == k; }))
      throw Error(where + ": unknown key \"" + key + "\"");
  }
}

std::int32_t headerInt(const Json& header, const char* key, std::int32_t fallback) {
  if (!header.contains(key)) return fallback;
  return integer<std::int32_t>(header[key], std::string("JSON header.") + key);
}

Json recordsJson(const Message& m, std::size_t section, const Names& names) {
  Json records = Json::array();
  const Section& s = m.sections[section];
  for (std::int32_t i = 0; i < s.count; ++i)
    records.push_back(
        recordJson(m, section, s.records.data() + std::size_t(i) * m.recordSize(section), names));
  return records;
}

Section sectionFromJson(const Message& m, std::size_t section, const Json& records,
                        const Names& names, const std::string& where) {
  if (!records.is_array()) throw Error(where + ": expected an array of records");
  Section s;
  s.count = static_cast<std::int32_t>(records.size());
  s.senderSize = static_cast<std::int32_t>(m.recordSize(section));
  s.records.assign(records.size() * m.recordSize(section), 0);
  for (std::size_t i = 0; i < records.size(); ++i)
    recordFromJson(m, section, records[i], s.records.data() + i * m.recordSize(section), names,
                   where + "[" + str(i) + "]");
  return s;
}

}  // namespace

Json toJson(const Message& m, const Names& names) {
  Json j;
  j["direction"] = directionName(m.shape.direction);
  j["function"] = m.shape.number;
  const Bytes raw = serialise(m);
  const Header h = Header::read(raw.data(), raw.size(), m.shape.direction);
  Json header;
  header["flags"] = h.flags();
  header["caller"] = toHex(h.caller(), h.callerSize(), true);
  const bool records = !m.sections.empty() || m.shape.form == TRDCOMP_FORM_RECORDS ||
                       m.shape.form == TRDCOMP_FORM_HEADER_ONLY;
  if (h.isRequest()) {
    header["count"] = h.count();
    header["size"] = h.recordSize();
    j["header"] = std::move(header);
    if (records && !m.sections.empty())
      j["records"] = recordsJson(m, 0, names);
    else
      j["body"] = toHex(m.body.data(), m.body.size());
    return j;
  }
  header["shortText"] = bytesToText(reinterpret_cast<const unsigned char*>(h.answer.short_text),
                                    sizeof h.answer.short_text);
  header["text"] =
      bytesToText(reinterpret_cast<const unsigned char*>(h.answer.text), sizeof h.answer.text);
  header["count"] = h.count();
  header["size"] = h.recordSize();
  j["header"] = std::move(header);
  if (m.shape.form == TRDCOMP_FORM_RECORDS) {
    Json sections = Json::array();
    for (std::size_t k = 0; k < m.sections.size(); ++k) {
      Json s;
      s["count"] = m.sections[k].count;
      s["size"] = m.recordSize(k);
      s["records"] = recordsJson(m, k, names);
      sections.push_back(std::move(s));
    }
    j["sections"] = std::move(sections);
  } else {
    j["body"] = toHex(m.body.data(), m.body.size());
  }
  return j;
}

Message fromJson(const Json& j, const Names& names) {
  if (!j.is_object()) throw Error("JSON: expected an object with \"direction\" and \"function\"");
  expectKeys(j, {"direction", "function", "header", "records", "sections", "body", "wire"}, "JSON");
  if (!j.contains("direction") || (j["direction"] != "request" && j["direction"] != "answer"))
    throw Error("JSON: \"direction\" must be \"request\" or \"answer\"");
  const int direction = j["direction"] == "request" ? TRDCOMP_REQUEST : TRDCOMP_ANSWER;
  if (!j.contains("function")) throw Error("JSON: \"function\" (the function number) is missing");
  const auto number = integer<std::uint32_t>(j["function"], "JSON function");
  const Json header = j.contains("header") ? j["header"] : Json::object();
  if (!header.is_object()) throw Error("JSON header: expected an object");
  if (direction == TRDCOMP_REQUEST)
    expectKeys(header, {"flags", "caller", "count", "size"}, "JSON header");
  else
    expectKeys(header, {"flags", "caller", "shortText", "text", "count", "size"}, "JSON header");
  const auto flags =
      header.contains("flags") ? integer<std::uint8_t>(header["flags"], "JSON header.flags") : 0;

  Message m;
  m.shape = describe(number, direction, flags & TRDCOMP_FLAG_NIBBLE_MASK ? 1 : 0);
  m.header = Header::blank(direction);
  m.header.function() = number;
  m.header.flags() = static_cast<std::uint8_t>(flags & ~TRDCOMP_FLAG_PACKED);
  if (header.contains("caller")) {
    if (!header["caller"].is_string()) throw Error("JSON header.caller: expected a hex string");
    const Bytes caller =
        fromHex(header["caller"].get<std::string>(), "JSON header.caller", m.header.callerSize());
    std::memcpy(m.header.isRequest() ? m.header.request.caller : m.header.answer.caller,
                caller.data(), caller.size());
  }
  if (direction == TRDCOMP_ANSWER) {
    for (auto [key, to, width] :
         {std::tuple{"shortText", m.header.answer.short_text, sizeof m.header.answer.short_text},
          std::tuple{"text", m.header.answer.text, sizeof m.header.answer.text}}) {
      if (!header.contains(key)) continue;
      if (!header[key].is_string())
        throw Error(std::string("JSON header.") + key + ": expected a string");
      const Bytes b =
          textToBytes(header[key].get<std::string>(), width, std::string("JSON header.") + key);
      std::memcpy(to, b.data(), b.size());
    }
  }
  m.header.count() = headerInt(header, "count", 0);
  m.header.recordSize() = headerInt(header, "size", 0);

  const bool hasRecords =
      m.shape.form == TRDCOMP_FORM_RECORDS || m.shape.form == TRDCOMP_FORM_HEADER_ONLY;
  const std::string what = std::string(directionName(direction)) + " " + str(number);
  if (!hasRecords) {
    if (j.contains("records") || j.contains("sections"))
      throw Error("JSON: " + what + " has no record layout; give its bytes as \"body\"");
    if (j.contains("body")) {
      if (!j["body"].is_string()) throw Error("JSON body: expected a hex string");
      m.body = fromHex(j["body"].get<std::string>(), "JSON body");
    }
    return m;
  }
  if (j.contains("body")) throw Error("JSON: " + what + " has records, not a \"body\"");
  if (direction == TRDCOMP_REQUEST) {
    if (j.contains("sections")) throw Error("JSON: a request has \"records\", not \"sections\"");
    m.sections.push_back(sectionFromJson(m, 0, j.contains("records") ? j["records"] : Json::array(),
                                         names, "JSON records"));
  } else {
    if (j.contains("records"))
      throw Error("JSON: an answer has \"sections\", each with \"records\"");
    const Json sections = j.contains("sections") ? j["sections"] : Json::array();
    if (!sections.is_array()) throw Error("JSON sections: expected an array");
    if (sections.size() > m.shape.sections.size())
      throw Error("JSON sections: " + str(sections.size()) + " sections, " + what + " has " +
                  str(m.shape.sections.size()) + " in the " + codecName(m.shape.codec) + " codec");
    for (std::size_t k = 0; k < sections.size(); ++k) {
      const std::string where = "JSON sections[" + str(k) + "]";
      if (!sections[k].is_object()) throw Error(where + ": expected an object with \"records\"");
      expectKeys(sections[k], {"count", "size", "records"}, where);
      Section s = sectionFromJson(
          m, k, sections[k].contains("records") ? sections[k]["records"] : Json::array(), names,
          where + ".records");
      if (sections[k].contains("count") &&
          integer<std::int64_t>(sections[k]["count"], where + ".count") != s.count)
        throw Error(where + ".count: " + sections[k]["count"].dump() + " differs from the " +
                    str(s.count) + " records given");
      if (sections[k].contains("size") &&
          integer<std::int64_t>(sections[k]["size"], where + ".size") != m.recordSize(k))
        throw Error(where + ".size: records of this section are " + str(m.recordSize(k)) +
                    " bytes");
      m.sections.push_back(std::move(s));
    }
  }
  // The header's count and size follow from the records; stated ones must agree.
  const std::int32_t count = m.sections.empty() ? 0 : m.sections[0].count;
  if (header.contains("count") && headerInt(header, "count", 0) != count)
    throw Error("JSON header.count: " + header["count"].dump() + " differs from the " + str(count) +
                " records of " + (direction == TRDCOMP_REQUEST ? "the request" : "section 0"));
  if (header.contains("size") &&
      headerInt(header, "size", 0) != static_cast<std::int32_t>(m.recordSize(0)))
    throw Error("JSON header.size: records of " + what + " are " + str(m.recordSize(0)) + " bytes");
  return m;
}

// ---- input and output ---------------------------------------------------------------------

Bytes readInput(const std::string& path, bool hex) {
  std::string data;
  if (path == "-") {
    data.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Error(path + ": cannot open it");
    data.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  if (hex) return parseHexText(data);
  return Bytes(data.begin(), data.end());
}

void writeOutput(const std::string& path, const Bytes& bytes) {
  if (path == "-") {
    std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::streamsize>(bytes.size()));
    std::cout.flush();
    if (!std::cout) throw Error("cannot write to standard output");
    return;
  }
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file) throw Error(path + ": cannot write it");
}

void writeOutput(const std::string& path, const std::string& text) {
  writeOutput(path, Bytes(text.begin(), text.end()));
}

}  // namespace trdcomp::tool
