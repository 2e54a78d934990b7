// A raw message taken apart by the library's layout descriptions: header, sections, records;
// and the conversions of the tool: JSON both ways, field values as text.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "trdcomp_c.h"
#include "util.h"

namespace trdcomp::tool {

using Json = nlohmann::ordered_json;

struct SectionShape {
  trdcomp_section_info info{};
  std::vector<trdcomp_field_info> fields;
};

// What a number's body is made of in one direction and codec (0: 2008, 1: 2011 Fast).
struct Shape {
  std::uint32_t number = 0;
  int direction = TRDCOMP_REQUEST;
  int codec = 0;
  int form = TRDCOMP_FORM_PASS_THROUGH;
  std::vector<SectionShape> sections;
};

// Top-level fields in offset order, each with its index in the layout; members follow their
// group in the layout and are reached from it.
std::vector<int> topLevel(const SectionShape& s);

// Throws Error (offset 4) for an unknown number.
Shape describe(std::uint32_t number, int direction, int codec);

const char* directionName(int direction);
const char* codecName(int codec);

struct Section {
  std::int32_t count = 0;
  std::int32_t senderSize = 0;  // the record size the message states
  std::int64_t offset = 0;      // of the first record in the message
  Bytes records;                // count records of the layout's size, each as the library keeps it
};

// A raw message. Forms with records keep them per section; the others keep the bytes after the
// header as they are.
struct Message {
  Shape shape;
  Bytes header;  // 76 (request) or 96 (answer) bytes
  std::vector<Section> sections;
  Bytes body;  // no-body and pass-through forms
  bool table() const { return shape.direction == TRDCOMP_ANSWER && sections.size() > 1; }
  std::uint32_t recordSize(std::size_t section) const {
    return shape.sections[section].info.record_size;
  }
};

// Takes a raw message apart; throws Error with the offset of the fault.
Message parseRaw(const Bytes& raw, int direction);
// The raw message's bytes: header (count, size and table written from the sections), records.
Bytes serialise(const Message& m);

// Field names from a names file: {"NUMBER": {"request"|"answer": {"SECTION": {"OFFSET": name}}}}
// where a member of a counted group is "GROUP+MEMBER" (offsets of the group in the record and
// of the member in the entry).
class Names {
 public:
  static Names load(const std::string& path);
  std::string name(std::uint32_t number, int direction, int section, const std::string& key) const;
  std::string key(std::uint32_t number, int direction, int section, const std::string& name) const;

 private:
  // (number, direction, section) -> key -> name
  std::map<std::tuple<std::uint32_t, int, int>, std::map<std::string, std::string>> names_;
};

// The JSON form: header fields and records keyed by field name or offset.
Json toJson(const Message& m, const Names& names);
Message fromJson(const Json& j, const Names& names);

// One field, for people: "text[32]" and its value escaped.
std::string kindName(const trdcomp_field_info& f);
std::string fieldText(const trdcomp_field_info& f, const unsigned char* at);

// Reads the input of a subcommand: a file or "-", binary or hex text.
Bytes readInput(const std::string& path, bool hex);
void writeOutput(const std::string& path, const Bytes& bytes);
void writeOutput(const std::string& path, const std::string& text);

}  // namespace trdcomp::tool
