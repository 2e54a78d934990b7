// The golden wire corpus: the packed and restored bytes of a fixed set of messages, frozen as
// one line per message (lengths and 64-bit digests) in tests/golden/wire.txt.
//
// The wire bytes are a contract with deployed peers. The corpus covers every function number
// and a few unknown ones, both directions, both codecs (nibble 0, 1 and 2), both codec flags,
// 0, 1 and 3 records, raw (unpacked) messages whose sender record size is smaller or larger
// than the layout's, and requests whose body is shorter than one record. A change of any of
// those bytes shows up as a changed line, so it is a decision, never an accident.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace trdcomp::golden {

// 64-bit FNV-1a.
std::uint64_t digest(const unsigned char* data, std::size_t n);

// Every message of the corpus, in a fixed order, one line each:
//   name  input-length input-digest  packed-length packed-digest  result restored-length
//   restored-digest
// Digests are 16 lower-case hex digits; a raw message that is only restored has "-" for its
// packed digest, and a restore that hands back no buffer has "null" for its restored digest.
std::vector<std::string> buildCorpus();

// The comment that opens wire.txt: what the columns mean and how to regenerate.
extern const char kFileHeader[];

}  // namespace trdcomp::golden
