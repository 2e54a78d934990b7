// The messages and operations of trdcomp_compare. Every operation works on the same raw
// message: trdcomp packs the caller's header and records and restores them into a new buffer
// (or into the caller's);
// LZ4 and zstd compress the raw message and decompress it again; memcpy (and malloc, memcpy,
// free) copy it.
#pragma once

#include <lz4.h>
#include <zstd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "records/layout.h"
#include "samples.h"

namespace trdcomp::compare {

using samples::Bytes;

enum class Op {
  Pack,
  Restore,
  Lz4Compress,
  Lz4Decompress,
  ZstdCompress,
  ZstdDecompress,
  Memcpy,
  MallocMemcpyFree,
  MallocSlackFree,  // the restored buffer's own cost: malloc, copy, zeroed slack, free
  RestoreInto,      // trdcomp into the caller's buffer, nothing allocated
  Fields            // a 1-record request: its record's decoding alone, no header or frame
};
const char* opName(Op op);

// One message in one codec, checked once: it restores to the records sent, and LZ4 and zstd
// give its raw bytes back.
struct Message {
  std::uint32_t number = 0;
  int codec = 0;  // 0: the 2008 codec, 1: the 2011 Fast codec
  bool isAnswer = false;
  int records = 0;  // per section
  samples::Request request;
  samples::Answer answer;
  Bytes packed;  // trdcomp's packed form
  Bytes raw;     // the raw message: header and records as the restore side hands them over
  Bytes lz4;     // raw, LZ4_compress_default
  Bytes zstd;    // raw, zstd level 1
  // A 1-record request's record for Op::Fields: its layout, and the packed message followed by
  // zeros, so that the record is decoded as one well inside its input (offset and length as
  // the frame walker finds them).
  const records::Layout* layout = nullptr;
  Bytes padded;
  std::int64_t recordAt = 0, recordLength = 0;

  const char* codecName() const { return codec ? "2011" : "2008"; }
  const char* kind() const { return isAnswer ? "answer" : "request"; }
  std::string label() const;  // e.g. "2011/answer/1002/100"
};

// Builds and checks a message with realistic values; a message that does not come back as it
// was sent stops the program with the reason (the comparison would be meaningless).
Message makeMessage(std::uint32_t number, int codec, bool isAnswer, int records);

// The buffers and compressor contexts of one benchmark thread, reused by every iteration (the
// zstd contexts are made by the first call that needs them).
class Worker {
 public:
  explicit Worker(Message& m);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // trdcomp into a buffer of the library's bound, reused (for an answer, header bytes 8 to 19
  // are zeroed first: the packer ORs the flags into byte 8 and leaves 9 to 19 to the caller).
  int pack(Message& m);
  // trdcomp into a new buffer, released again.
  void restore(Message& m);
  // trdcomp into this worker's buffer (the restored length at least), nothing allocated.
  int restoreInto(Message& m);
  int lz4Compress(const Message& m);
  int lz4Decompress(const Message& m);
  std::size_t zstdCompress(const Message& m);
  std::size_t zstdDecompress(const Message& m);
  void copy(const Message& m);
  void allocateCopyFree(const Message& m);
  // What every restore of the message must do whatever its codec: allocate the restored message
  // with the format's 1024 bytes of slack, copy it, zero the slack and free it.
  void allocateSlackFree(const Message& m);
  // The record of a 1-record request decoded by its codec's record decoder alone, into a
  // buffer of its layout's size and more.
  std::int64_t decodeFields(const Message& m);
  unsigned char* out() { return out_.data(); }

 private:
  Bytes out_;
  Bytes record_;
  ZSTD_CCtx* cctx_;
  ZSTD_DCtx* dctx_;
};

}  // namespace trdcomp::compare
