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

// A message's header, read and written through the library's header structs.
struct Header {
  int direction = TRDCOMP_REQUEST;
  trdcomp_request_header request{};
  trdcomp_answer_header answer{};

  // The header of `direction` at the start of `p` (n bytes); throws Error when it is cut off.
  static Header read(const unsigned char* p, std::size_t n, int direction);
  static Header blank(int direction);
  static std::size_t size(int direction) {
    return direction == TRDCOMP_REQUEST ? sizeof(trdcomp_request_header)
                                        : sizeof(trdcomp_answer_header);
  }
  Bytes bytes() const;

  bool isRequest() const { return direction == TRDCOMP_REQUEST; }
  std::int32_t& length() { return isRequest() ? request.header_length : answer.header_length; }
  std::uint32_t& function() { return isRequest() ? request.function : answer.function; }
  std::uint8_t& flags() { return isRequest() ? request.flags : answer.flags; }
  std::int32_t& count() { return isRequest() ? request.count : answer.count; }
  std::int32_t& recordSize() { return isRequest() ? request.size : answer.size; }
  std::int32_t length() const { return isRequest() ? request.header_length : answer.header_length; }
  std::uint32_t function() const { return isRequest() ? request.function : answer.function; }
  std::uint8_t flags() const { return isRequest() ? request.flags : answer.flags; }
  std::int32_t count() const { return isRequest() ? request.count : answer.count; }
  std::int32_t recordSize() const { return isRequest() ? request.size : answer.size; }
  const std::uint8_t* caller() const { return isRequest() ? request.caller : answer.caller; }
  std::size_t callerSize() const {
    return isRequest() ? sizeof request.caller : sizeof answer.caller;
  }
  int codec() const { return flags() & TRDCOMP_FLAG_NIBBLE_MASK ? 1 : 0; }
};

// "0x11: records packed, codec nibble 1 (2011 Fast)"
std::string flagsText(std::uint8_t flags);

struct Section {
  std::int32_t count = 0;
  std::int32_t senderSize = 0;  // the record size the input states (its layout's when packed)
  std::int64_t offset = 0;      // of the first record in the raw message
  Bytes records;                // count records of the layout's size, each as the library keeps it
};

// A raw message. Forms with records keep them per section; the others keep the bytes after the
// header as they are.
struct Message {
  Shape shape;
  Header header;
  std::vector<Section> sections;
  Bytes body;  // no-body and pass-through forms
  bool table() const { return shape.direction == TRDCOMP_ANSWER && sections.size() > 1; }
  std::uint32_t recordSize(std::size_t section) const {
    return shape.sections[section].info.record_size;
  }
};

// ---- the library on byte vectors ----------------------------------------------------------

struct Warning {
  std::string message;
  std::int64_t offset = -1;
};

Bytes packBytes(const Bytes& raw, int direction, int codec, int flag, std::int64_t base = 0);
// Restores a packed or raw message into the library's raw form; appends what is odd about it
// to `warnings` when given.
Bytes restoreBytes(const Bytes& message, int direction, int flag, long long maxSize,
                   std::int64_t base = 0, std::vector<Warning>* warnings = nullptr);
// The frame of a message as the library walks it; throws Error where it refuses the message.
trdcomp_frame frameOf(const Bytes& message, int direction, int flag);

// A packed or raw message in the library's raw form: restored, and for a raw 2011 answer
// restored from the 2008 form it shares.
Bytes normalise(const Bytes& in, int direction, int flag, long long maxSize,
                std::vector<Warning>* warnings = nullptr, std::int64_t base = 0);
// A raw 2011 answer as the 2008 form the library walks (its nibble cleared); else `in`.
Bytes with2008Nibble(Bytes in, int direction);
// The frame of a raw message, a raw 2011 answer walked as that 2008 form.
trdcomp_frame rawFrameOf(const Bytes& raw, int direction, int flag);

// Takes apart a message in the library's raw form (as restoreBytes gives it) by its frame.
Message fromRestored(const Bytes& raw, int direction, int flag);
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

// One field, for people: "text[32]" and its value escaped; and as a JSON value.
std::string kindName(const trdcomp_field_info& f);
std::string fieldText(const trdcomp_field_info& f, const unsigned char* at);
Json fieldJson(const trdcomp_field_info& f, const unsigned char* at);

// Reads the input of a subcommand: a file or "-", binary or hex text.
Bytes readInput(const std::string& path, bool hex);
void writeOutput(const std::string& path, const Bytes& bytes);
void writeOutput(const std::string& path, const std::string& text);

}  // namespace trdcomp::tool
