// The function-number catalogue: for every known number, the routine (and so the layout) that
// serves its requests and answers in each codec and direction.
#pragma once

#include <cstdint>

#include "records/layout.h"

namespace trdcomp::frame {

enum class RequestForm : std::uint8_t {
  Routine,     // a per-function routine packs and restores the body
  HeaderOnly,  // packed as the bare header with the record count set to 0 (1000, 1001)
  NoBody,      // no body in either direction (1017)
  PassThrough  // no routine: the body passes unchanged (8998)
};

enum class AnswerForm : std::uint8_t {
  Routine,     // per-function routines pack and restore the sections
  NoBody,      // no body in either direction (1017)
  PassThrough  // no routine: the raw sections pass unchanged (8999)
};

enum Codec : int { k2008 = 0, k2011 = 1 };

struct Entry {
  std::uint32_t number = 0;
  RequestForm requestForm = RequestForm::Routine;
  const records::Layout* request[2] = {};  // by codec; restore side too for HeaderOnly
  AnswerForm answerForm = AnswerForm::Routine;
  const records::AnswerLayout* answerPack[2] = {};
  const records::AnswerLayout* answerRestore[2] = {};
  std::uint32_t requestSize = 0;      // as the catalogue states it
  std::uint32_t answerSizes[3] = {};  // section sizes as stated; 0 where the layouts decide
};

// The entry of a known function number, or null.
const Entry* find(std::uint32_t number);

// All entries, in number order (for checks and tools).
const Entry* begin();
const Entry* end();

}  // namespace trdcomp::frame
