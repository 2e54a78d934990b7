// What a reference decoder tells an observer about the bytes it reads: where each field lies in
// the record's input, and in the 2011 codec the presence map and what each of its bits stands
// for. Only the checked decoders take one; the tool's explanation of a message is built on it.
#pragma once

#include <cstdint>

namespace trdcomp::records {

class FieldTrace {
 public:
  // Field `index` of the layout (a group member: of entry `entry`, else -1) lying at `at` in the
  // record was read from input bytes [from, to), counted from the record's first byte.
  virtual void field(int index, std::int64_t entry, std::int64_t at, std::int64_t from,
                     std::int64_t to) = 0;
  // 2011: the presence map is bytes [0, to).
  virtual void map(std::int64_t to) = 0;
  // 2011: map place `place` stands for field `index` (-2: the dictionary index) of `entry`.
  virtual void place(int place, int index, std::int64_t entry) = 0;
  // 2011: the dictionary index was read from bytes [from, to).
  virtual void index(std::int64_t from, std::int64_t to) = 0;

 protected:
  ~FieldTrace() = default;
};

}  // namespace trdcomp::records
