// Layout descriptions for the C interface, read straight from the catalogue and the layout rows.
#include <cstdio>
#include <cstring>

#include "capi/tables.h"
#include "primitives/bytes.h"

namespace trdcomp::capi {

using records::Field;
using records::Kind;
using records::Layout;

static_assert(TRDCOMP_KIND_CHAR == int(Kind::Char) && TRDCOMP_KIND_TEXT == int(Kind::Text) &&
              TRDCOMP_KIND_SHORT_TEXT == int(Kind::ShortText) &&
              TRDCOMP_KIND_BLOCK == int(Kind::Block) && TRDCOMP_KIND_INT32 == int(Kind::Int32) &&
              TRDCOMP_KIND_INT64 == int(Kind::Int64) && TRDCOMP_KIND_DOUBLE == int(Kind::Double) &&
              TRDCOMP_KIND_COUNTED_BLOCK == int(Kind::CountedBlock) &&
              TRDCOMP_KIND_GROUP == int(Kind::Group));
static_assert(TRDCOMP_TEXT_LENGTH_PREFIXED == int(records::TextForm::LengthPrefixed) &&
              TRDCOMP_TEXT_STOP_BIT == int(records::TextForm::StopBit) &&
              TRDCOMP_TEXT_EXCHANGE == int(records::TextForm::ExchangeCode));
static_assert(TRDCOMP_BASE_CONSTANT == int(records::BaseForm::Constant) &&
              TRDCOMP_BASE_FIELD == int(records::BaseForm::Field) &&
              TRDCOMP_BASE_PREVIOUS == int(records::BaseForm::Previous));

int codecIndex(int codec) {
  return codec == TRDCOMP_CODEC_2008 ? 0 : codec == TRDCOMP_CODEC_2011 ? 1 : -1;
}

Records recordsOf(const frame::Entry& entry, int direction, int codec) {
  Records r;
  if (direction == TRDCOMP_REQUEST) {
    switch (entry.requestForm) {
      case frame::RequestForm::Routine: r.form = TRDCOMP_FORM_RECORDS; break;
      case frame::RequestForm::HeaderOnly: r.form = TRDCOMP_FORM_HEADER_ONLY; break;
      case frame::RequestForm::NoBody: r.form = TRDCOMP_FORM_NO_BODY; return r;
      case frame::RequestForm::PassThrough: r.form = TRDCOMP_FORM_PASS_THROUGH; return r;
    }
    // Header-only requests still restore records of their routine's layout (none, packed).
    r.sectionCount = 1;
    r.sections[0] = entry.request[codec];
    return r;
  }
  switch (entry.answerForm) {
    case frame::AnswerForm::Routine: r.form = TRDCOMP_FORM_RECORDS; break;
    case frame::AnswerForm::NoBody: r.form = TRDCOMP_FORM_NO_BODY; return r;
    case frame::AnswerForm::PassThrough: r.form = TRDCOMP_FORM_PASS_THROUGH; return r;
  }
  const records::AnswerLayout& a = *entry.answerRestore[codec];
  r.sectionCount = a.sectionCount;
  for (int s = 0; s < a.sectionCount; ++s) r.sections[s] = a.sections[s];
  return r;
}

int fail(trdcomp_error* err, int code, std::int64_t offset, const char* format, ...) {
  if (err) {
    err->code = code;
    err->offset = offset;
    // A truncation says so first, whatever its details.
    const char* prefix = code == TRDCOMP_ERROR_TRUNCATED ? "truncated message: " : "";
    const int n = std::snprintf(err->message, sizeof err->message, "%s", prefix);
    va_list args;
    va_start(args, format);
    std::vsnprintf(err->message + n, sizeof err->message - static_cast<std::size_t>(n), format,
                   args);
    va_end(args);
  }
  return code;
}

namespace {

// The records of a number, or a status code.
int lookUp(std::uint32_t number, int direction, int codec, Records& out) {
  const int c = codecIndex(codec);
  if (c < 0 || (direction != TRDCOMP_REQUEST && direction != TRDCOMP_ANSWER))
    return TRDCOMP_ERROR_ARGUMENT;
  const frame::Entry* e = frame::find(number);
  if (!e) return TRDCOMP_ERROR_UNKNOWN_FUNCTION;
  out = recordsOf(*e, direction, c);
  return TRDCOMP_OK;
}

}  // namespace

}  // namespace trdcomp::capi

using namespace trdcomp::capi;

extern "C" {

int trdcomp_function_count(void) {
  return static_cast<int>(trdcomp::frame::end() - trdcomp::frame::begin());
}

uint32_t trdcomp_function_at(int index) {
  if (index < 0 || index >= trdcomp_function_count()) return 0;
  return trdcomp::frame::begin()[index].number;
}

int trdcomp_describe(uint32_t number, int direction, int codec, trdcomp_message_info* info) {
  if (!info) return TRDCOMP_ERROR_ARGUMENT;
  Records r;
  if (int status = lookUp(number, direction, codec, r)) return status;
  std::memset(info, 0, sizeof *info);
  info->number = number;
  info->form = r.form;
  info->section_count = r.sectionCount;
  for (int s = 0; s < r.sectionCount; ++s) {
    const Layout& l = *r.sections[s];
    trdcomp_section_info& out = info->sections[s];
    out.record_size = l.size;
    out.field_count = l.fieldCount;
    out.routine = l.number;
    out.opaque = l.opaque;
    out.rotated = l.rotated;
    out.dictionary = l.dictionary;
    out.optional = l.optional;
  }
  return TRDCOMP_OK;
}

int trdcomp_field(uint32_t number, int direction, int codec, int section, int index,
                  trdcomp_field_info* field) {
  if (!field) return TRDCOMP_ERROR_ARGUMENT;
  Records r;
  if (int status = lookUp(number, direction, codec, r)) return status;
  if (section < 0 || section >= r.sectionCount) return TRDCOMP_ERROR_ARGUMENT;
  const Layout& l = *r.sections[section];
  if (index < 0 || index >= l.fieldCount) return TRDCOMP_ERROR_ARGUMENT;
  const Field& f = l.fields[index];
  std::memset(field, 0, sizeof *field);
  field->offset = f.offset;
  field->width = f.width;
  field->cap = f.cap;
  field->kind = static_cast<int>(f.kind);
  field->group = -1;
  // A group's members follow it; find the group that encloses this field, if any.
  for (int g = 0; g < index; ++g) {
    const Field& candidate = l.fields[g];
    if (candidate.kind != Kind::Group) continue;
    if (index <= g + candidate.members) field->group = g;
    g += candidate.members;
  }
  field->repeat = f.repeat;
  field->stride = f.stride;
  field->members = f.members;
  field->count_offset = f.countOffset;
  field->text_form = static_cast<int>(f.text);
  field->base_form = static_cast<int>(f.baseForm);
  field->has_default = f.hasDefault;
  field->dictionary = f.dictionary;
  field->base = f.base;
  field->base_offset = f.baseOffset;
  field->default_value = f.defaultValue;
  return TRDCOMP_OK;
}

int trdcomp_direction(const void* message, size_t length) {
  if (!message || length < 4) return -1;
  const std::int32_t headLen = trdcomp::loadI32(message);
  return headLen == 76 ? TRDCOMP_REQUEST : headLen == 96 ? TRDCOMP_ANSWER : -1;
}

}  // extern "C"
