// trdcomp diff: what differs between two messages once both are restored, field by field.
#include <algorithm>
#include <cstring>
#include <iostream>
#include <sstream>

#include "commands.h"
#include "load.h"
#include "message.h"

namespace trdcomp::tool {
namespace {

std::string str(std::int64_t v) {
  return std::to_string(v);
}

struct Difference {
  Json entry;        // as --json lists it
  std::string line;  // as the text lists it
};

struct Differences {
  std::vector<Difference> header, counts, fields;
  bool empty() const { return header.empty() && counts.empty() && fields.empty(); }
};

// The bits of the flags byte that say what a message is; packing and the section table are
// matters of how it travels, and the sections are compared on their own.
std::uint8_t meaningfulFlags(std::uint8_t flags) {
  return static_cast<std::uint8_t>(flags & ~(TRDCOMP_FLAG_PACKED | TRDCOMP_FLAG_SECTION_TABLE));
}

void compareHeaders(const Message& a, const Message& b, Differences& d) {
  auto add = [&](const std::string& field, Json va, Json vb, const std::string& ta,
                 const std::string& tb) {
    d.header.push_back({{{"field", field}, {"a", std::move(va)}, {"b", std::move(vb)}},
                        "header " + field + ": " + ta + " | " + tb});
  };
  if (a.shape.direction != b.shape.direction) {
    const std::string da = directionName(a.shape.direction), db = directionName(b.shape.direction);
    add("direction", da, db, da, db);
  }
  if (a.shape.number != b.shape.number)
    add("function", a.shape.number, b.shape.number, str(a.shape.number), str(b.shape.number));
  const std::uint8_t fa = meaningfulFlags(a.header.flags()), fb = meaningfulFlags(b.header.flags());
  if (fa != fb) add("flags", fa, fb, flagsText(fa), flagsText(fb));
  if (a.shape.direction != b.shape.direction) return;
  const std::string ca = toHex(a.header.caller(), a.header.callerSize(), true);
  const std::string cb = toHex(b.header.caller(), b.header.callerSize(), true);
  if (ca != cb) add("caller", ca, cb, ca.empty() ? "(zeros)" : ca, cb.empty() ? "(zeros)" : cb);
  if (a.header.isRequest()) return;
  for (auto [field, pa, pb, width] :
       {std::tuple{"shortText", a.header.answer.short_text, b.header.answer.short_text,
                   sizeof a.header.answer.short_text},
        std::tuple{"text", a.header.answer.text, b.header.answer.text,
                   sizeof a.header.answer.text}}) {
    const auto* ua = reinterpret_cast<const unsigned char*>(pa);
    const auto* ub = reinterpret_cast<const unsigned char*>(pb);
    if (std::memcmp(ua, ub, width) != 0)
      add(field, bytesToText(ua, width), bytesToText(ub, width), escapeText(ua, width),
          escapeText(ub, width));
  }
}

bool sameLayout(const SectionShape& a, const SectionShape& b) {
  if (a.info.record_size != b.info.record_size || a.info.opaque != b.info.opaque ||
      a.fields.size() != b.fields.size())
    return false;
  for (std::size_t i = 0; i < a.fields.size(); ++i) {
    const trdcomp_field_info &x = a.fields[i], &y = b.fields[i];
    if (x.offset != y.offset || x.width != y.width || x.kind != y.kind || x.group != y.group ||
        x.repeat != y.repeat || x.stride != y.stride || x.members != y.members)
      return false;
  }
  return true;
}

void compareRecord(const Message& m, int section, std::int64_t record, const unsigned char* ra,
                   const unsigned char* rb, const Names& names, Differences& d) {
  const SectionShape& s = m.shape.sections[static_cast<std::size_t>(section)];
  const std::string where =
      (m.shape.direction == TRDCOMP_ANSWER ? "section " + str(section) + " " : std::string()) +
      "record " + str(record) + " field ";
  auto add = [&](const trdcomp_field_info& f, std::uint32_t offset, const std::string& key,
                 const unsigned char* pa, const unsigned char* pb, Json extra,
                 const std::string& label) {
    if (std::memcmp(pa, pb, f.width) == 0) return;
    const std::string name = names.name(m.shape.number, m.shape.direction, section, key);
    Json e = {{"section", section}, {"record", record}, {"offset", offset}};
    e.update(extra);
    e["kind"] = kindName(f);
    e["name"] = name.empty() ? Json(nullptr) : Json(name);
    e["a"] = fieldJson(f, pa);
    e["b"] = fieldJson(f, pb);
    d.fields.push_back({std::move(e), where + label + " " + kindName(f) +
                                          (name.empty() ? "" : " " + name) + ": " +
                                          fieldText(f, pa) + " | " + fieldText(f, pb)});
  };
  if (s.info.opaque) {
    trdcomp_field_info whole{};
    whole.kind = TRDCOMP_KIND_BLOCK;
    whole.width = s.info.record_size;
    add(whole, 0, "0", ra, rb, Json::object(), "0");
    return;
  }
  for (int i : topLevel(s)) {
    const trdcomp_field_info& f = s.fields[static_cast<std::size_t>(i)];
    if (f.kind != TRDCOMP_KIND_GROUP) {
      add(f, f.offset, str(f.offset), ra + f.offset, rb + f.offset, Json::object(), str(f.offset));
      continue;
    }
    for (std::uint32_t e = 0; e < f.repeat; ++e)
      for (std::uint32_t k = 1; k <= f.members; ++k) {
        const trdcomp_field_info& member = s.fields[static_cast<std::size_t>(i) + k];
        const std::size_t at = f.offset + std::size_t(e) * f.stride + member.offset;
        add(member, f.offset, str(f.offset) + "+" + str(member.offset), ra + at, rb + at,
            {{"entry", e}, {"member", member.offset}},
            str(f.offset) + "[" + str(e) + "]+" + str(member.offset));
      }
  }
}

Differences compare(const Message& a, const Message& b, const Names& names) {
  Differences d;
  compareHeaders(a, b, d);
  if (a.shape.direction != b.shape.direction || a.shape.number != b.shape.number) return d;
  if (a.body != b.body) {
    const std::string ha = toHex(a.body.data(), a.body.size());
    const std::string hb = toHex(b.body.data(), b.body.size());
    d.header.push_back({{{"field", "body"}, {"a", ha}, {"b", hb}},
                        "body: " + str(static_cast<std::int64_t>(a.body.size())) + " bytes | " +
                            str(static_cast<std::int64_t>(b.body.size())) + " bytes, differing"});
  }
  const std::size_t sections = std::max(a.sections.size(), b.sections.size());
  for (std::size_t k = 0; k < sections; ++k) {
    const std::int32_t ca = k < a.sections.size() ? a.sections[k].count : 0;
    const std::int32_t cb = k < b.sections.size() ? b.sections[k].count : 0;
    const int sec = static_cast<int>(k);
    if (ca != cb)
      d.counts.push_back({{{"section", sec}, {"a", ca}, {"b", cb}},
                          "section " + str(sec) + " count: " + str(ca) + " | " + str(cb)});
    if (k >= a.sections.size() || k >= b.sections.size()) continue;
    if (!sameLayout(a.shape.sections[k], b.shape.sections[k])) {
      d.header.push_back({{{"field", "layout"},
                           {"section", sec},
                           {"a", codecName(a.shape.codec)},
                           {"b", codecName(b.shape.codec)}},
                          "section " + str(sec) +
                              ": the records of the two codecs differ in layout; not compared"});
      continue;
    }
    const std::size_t size = a.recordSize(k);
    for (std::int32_t i = 0; i < std::min(ca, cb); ++i)
      compareRecord(a, sec, i, a.sections[k].records.data() + std::size_t(i) * size,
                    b.sections[k].records.data() + std::size_t(i) * size, names, d);
  }
  return d;
}

Loaded loadSide(const Options& o, const std::string& path, const Names& names) {
  try {
    Loaded l = loadBytes(o, readInput(path, o.hex), names, true);
    printWarnings(std::cerr, l.warnings, path + ": ");
    return l;
  } catch (const Error& e) {
    throw Error(path + ": " + e.what(), e.offset());
  }
}

}  // namespace

int diff(const Options& o) {
  if (o.input == "-" && o.other == "-") throw Error("only one of the two messages can be \"-\"");
  const Names names = Names::load(o.names);
  const Loaded a = loadSide(o, o.input, names), b = loadSide(o, o.other, names);
  const Differences d = compare(a.message, b.message, names);
  if (o.json) {
    Json j;
    j["equal"] = d.empty();
    for (auto [key, list] : {std::pair{"header", &d.header}, std::pair{"counts", &d.counts},
                             std::pair{"fields", &d.fields}}) {
      j[key] = Json::array();
      for (const Difference& x : *list) j[key].push_back(x.entry);
    }
    writeOutput(o.output, j.dump(2) + "\n");
  } else {
    std::ostringstream out;
    for (const auto* list : {&d.header, &d.counts, &d.fields})
      for (const Difference& x : *list) out << x.line << "\n";
    writeOutput(o.output, out.str());
  }
  return d.empty() ? 0 : kDifferent;
}

}  // namespace trdcomp::tool
