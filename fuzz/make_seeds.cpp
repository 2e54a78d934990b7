// Writes the fuzzers' seed corpora and dictionary: the sample messages of every function number,
// packed in both codecs, in both directions, as each fuzzer reads its input.
//   make_seeds DIR   writes DIR/pack/*, DIR/capi/* and DIR/trdcomp.dict
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "frame/catalogue.h"
#include "samples.h"

namespace fs = std::filesystem;
using trdcomp::samples::Bytes;

namespace {

void write(const fs::path& file, const Bytes& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

void append32(Bytes& b, std::int32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<unsigned char>(std::uint32_t(v) >> (8 * i)));
}

// A dictionary entry: 4 little-endian bytes as a libFuzzer string.
std::string entry(const char* name, std::uint32_t v) {
  char text[64];
  std::snprintf(text, sizeof text, "%s=\"\\x%02X\\x%02X\\x%02X\\x%02X\"\n", name, v & 0xFF,
                (v >> 8) & 0xFF, (v >> 16) & 0xFF, v >> 24);
  return text;
}

// A capi_fuzzer seed: the direction and flag byte, a restore limit of 4 MiB, the message. A
// restored message goes in with flags bit 0 clear, as trdcomp_restore hands it back.
void writeCapi(const fs::path& file, unsigned char direction, const Bytes& message, bool restored) {
  Bytes seed{direction, 0xFF};
  seed.insert(seed.end(), message.begin(), message.end());
  if (restored && seed.size() > 10) seed[10] &= 0xFE;
  write(file, seed);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const fs::path dir = argv[1];
  fs::create_directories(dir / "pack");
  fs::create_directories(dir / "capi");
  std::ofstream dict(dir / "trdcomp.dict");
  // Header lengths, flags (packed, section table, codec nibble), counts and sizes at the edges.
  for (std::uint32_t v : {76u, 96u}) dict << entry("header_length", v);
  for (const char* flags : {"\\x01", "\\x03", "\\x11", "\\x13", "\\x10", "\\x02", "\\xF1"})
    dict << "flags=\"" << flags << "\"\n";
  for (std::uint32_t v : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0x10000000u, 0x10000u, 0xFFFFu})
    dict << entry("size", v);
  std::size_t index = 0;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end();
       ++e, ++index) {
    dict << entry("number", e->number);
    for (int nibble : {0, 1}) {
      const std::string name = std::to_string(e->number) + (nibble ? "-2011" : "-2008");
      for (int count : {1, 3}) {
        const auto request = trdcomp::samples::makeRequest(e->number, nibble, count, e->number);
        const auto answer = trdcomp::samples::makeAnswer(e->number, nibble, count, e->number);
        const Bytes packedRequest = trdcomp::samples::packRequest(request.head, request.body);
        const Bytes packedAnswer =
            trdcomp::samples::packAnswer(answer.proc, answer.sections, 0, nibble << 4);
        // C interface seeds: the packed messages, and what restoring them gives.
        const std::string capi = (dir / "capi" / name).string() + "-" + std::to_string(count);
        writeCapi(capi + "-request", 1, packedRequest, false);
        writeCapi(capi + "-answer", 2, packedAnswer, false);
        writeCapi(capi + "-request-raw", 1, trdcomp::samples::restoreRequest(packedRequest).bytes,
                  true);
        writeCapi(capi + "-answer-raw", 2, trdcomp::samples::restoreAnswer(packedAnswer).bytes,
                  true);
        // Pack seeds: number index, nibble and flag, low flag bits, codec selector, count,
        // record size, section count, four spare bytes, then the body.
        Bytes pack{static_cast<unsigned char>(index), static_cast<unsigned char>(nibble << 4), 0,
                   static_cast<unsigned char>(nibble << 4)};
        append32(pack, count);
        append32(pack, request.head.recSize);
        append32(pack, answer.proc.sectionCount);
        append32(pack, 0);
        pack.insert(pack.end(), request.body.begin(), request.body.end());
        write(dir / "pack" / (name + "-" + std::to_string(count)), pack);
      }
    }
  }
  return 0;
}
