// trdcomp: looks into, packs, restores and checks the messages of the trading API, and measures
// captures of them.
#include <CLI/CLI.hpp>
#include <iostream>
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#endif

#include "commands.h"
#include "util.h"

using namespace trdcomp::tool;

namespace {

void addInput(CLI::App& c, Options& o) {
  c.add_option("FILE", o.input, "message file, or - for standard input")->capture_default_str();
  c.add_flag("--hex", o.hex, "the input is hex text (as copied from a log), not binary");
}

void addDirection(CLI::App& c, Options& o) {
  auto* request =
      c.add_flag("--request", o.request, "read a request, whatever the header length says");
  c.add_flag("--answer", o.answer, "read an answer, whatever the header length says")
      ->excludes(request);
}

void addFlag(CLI::App& c, Options& o) {
  c.add_option("--flag", o.flag,
               "the 2008 codec flag of the entry points: 0 packs int32 fields in the "
               "compact 32-bit form, 1 in the 64-bit form")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
}

void addCodec(CLI::App& c, Options& o) {
  c.add_option("--codec", o.codec,
               "2008 or 2011; by default the codec nibble of the message's header")
      ->check(CLI::IsMember({2008, 2011}));
}

void addOutput(CLI::App& c, Options& o) {
  c.add_option("-o,--output", o.output, "output file, or - for standard output")
      ->capture_default_str();
}

void addNames(CLI::App& c, Options& o) {
  c.add_option(
       "--names", o.names,
       "JSON file of field names: {\"1002\": {\"request\": {\"0\": {\"3\": \"account\"}}}}, "
       "number, direction, section, field offset to name")
      ->check(CLI::ExistingFile);
}

void addMaxSize(CLI::App& c, Options& o) {
  c.add_option("--max-size", o.maxSize, "largest restored message in bytes (default 256 MiB)")
      ->check(CLI::PositiveNumber);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"trdcomp: look into, pack, restore and check the messages of the trading API"};
  app.require_subcommand(1);
  app.footer(
      "Messages are binary files (or - for standard input): a 76-byte request header or a 96-byte\n"
      "answer header, then the body. Examples:\n"
      "  trdcomp inspect message.bin\n"
      "  trdcomp restore --json packed.bin > message.json\n"
      "  trdcomp pack --codec 2011 message.json | trdcomp inspect -\n"
      "Exit status: 0 done, 1 bad input, 2 bad usage, 3 check found fields that will not survive\n"
      "(diff: 0 equal, 1 different, 2 bad input or usage).");
  Options o;

  CLI::App* inspect = app.add_subcommand("inspect", "show one message field by field");
  addInput(*inspect, o);
  addDirection(*inspect, o);
  addNames(*inspect, o);
  addFlag(*inspect, o);
  addMaxSize(*inspect, o);
  inspect->add_flag("--json", o.json, "print the message as one JSON object");
  addOutput(*inspect, o);
  inspect->footer(
      "Reads a raw or packed message (request or answer by its header length, codec by its\n"
      "nibble), restores it when packed, and prints the header, the sections and every record.\n"
      "Examples:\n"
      "  trdcomp inspect packed.bin\n"
      "  trdcomp inspect --hex - <<< '4c000000 ea030000 01 ...'\n"
      "  trdcomp inspect --json --names names.json packed.bin");

  CLI::App* explain = app.add_subcommand("explain", "show what every byte of a message encodes");
  addInput(*explain, o);
  addDirection(*explain, o);
  addNames(*explain, o);
  addFlag(*explain, o);
  addMaxSize(*explain, o);
  explain->add_flag("--json", o.json, "print the items as a JSON list");
  addOutput(*explain, o);
  explain->footer(
      "Reads a raw or packed message and prints one line per stretch of its bytes, in order:\n"
      "offset..end, the bytes in hex, and what they encode (header fields, section counts,\n"
      "length prefixes, presence maps bit by bit, fields with their decoded values, and bytes\n"
      "that nothing reads). Every byte is listed once. Examples:\n"
      "  trdcomp explain packed.bin\n"
      "  trdcomp explain --json --names names.json packed.bin");

  CLI::App* diff = app.add_subcommand("diff", "list the fields in which two messages differ");
  diff->add_option("A", o.input, "first message (packed, raw or JSON), or - for standard input")
      ->required();
  diff->add_option("B", o.other, "second message")->required();
  diff->add_flag("--hex", o.hex, "the inputs are hex text, not binary");
  addDirection(*diff, o);
  addNames(*diff, o);
  addFlag(*diff, o);
  addMaxSize(*diff, o);
  diff->add_flag("--json", o.json, "print the differences as JSON");
  diff->footer(
      "Restores both messages and compares them: header fields, section counts, and every field\n"
      "of the records both hold. A packed message equals its raw form. Exit status: 0 equal,\n"
      "1 different, 2 bad input or usage. Example:\n"
      "  trdcomp diff --names names.json sent.bin received.bin");

  CLI::App* pack = app.add_subcommand("pack", "pack a raw message or its JSON form");
  addInput(*pack, o);
  addDirection(*pack, o);
  addCodec(*pack, o);
  addFlag(*pack, o);
  addNames(*pack, o);
  addOutput(*pack, o);
  pack->footer(
      "Reads JSON (as restore --json writes it) or a raw binary message and writes the packed\n"
      "bytes. Example, a hand-written request packed with the 2011 Fast codec:\n"
      "  echo '{\"direction\": \"request\", \"function\": 1002, \"records\": [{\"0\": \"A\", "
      "\"3\": \"ACC1\"}]}' \\\n"
      "    | trdcomp pack --codec 2011 -o packed.bin -");

  CLI::App* restore = app.add_subcommand("restore", "restore a packed message");
  addInput(*restore, o);
  addDirection(*restore, o);
  addFlag(*restore, o);
  addNames(*restore, o);
  addMaxSize(*restore, o);
  restore->add_flag("--json", o.json, "write the message as JSON instead of raw bytes");
  addOutput(*restore, o);
  restore->footer(
      "Writes the raw message (header, section table, records; flags bit 0 cleared) or its JSON.\n"
      "Examples:\n"
      "  trdcomp restore packed.bin -o raw.bin\n"
      "  trdcomp restore --json packed.bin | trdcomp pack - | cmp - packed.bin");

  CLI::App* check = app.add_subcommand("check", "list the fields that will not survive a codec");
  addInput(*check, o);
  addDirection(*check, o);
  addCodec(*check, o);
  addFlag(*check, o);
  addNames(*check, o);
  addOutput(*check, o);
  check->footer(
      "Reads a raw message (binary or JSON), packs and restores it, and names every field that\n"
      "does not come back as sent, with its record, offset and the reason. Exit status 3 when\n"
      "any does. Example:\n"
      "  trdcomp check --codec 2011 message.json");

  CLI::App* stats = app.add_subcommand("stats", "packed sizes of captured messages");
  stats->add_option("FILE", o.inputs, "capture files: each message a u32 length, then the message")
      ->required()
      ->check(CLI::ExistingFile);
  addDirection(*stats, o);
  addFlag(*stats, o);
  addMaxSize(*stats, o);
  stats->add_flag("--json", o.json, "print the table as JSON");
  addOutput(*stats, o);
  stats->footer(
      "Per function number, direction and codec: messages, raw bytes, packed bytes and ratio.\n"
      "Packed messages are restored to measure them, raw ones packed. Example:\n"
      "  trdcomp stats capture-*.bin");

#if defined(_WIN32)
  // Messages are bytes: no newline translation on the standard streams.
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status == 0 ? 0 : kUsage;
  }

  try {
    if (*inspect) return trdcomp::tool::inspect(o);
    if (*explain) return trdcomp::tool::explain(o);
    if (*diff) return trdcomp::tool::diff(o);
    if (*pack) return trdcomp::tool::pack(o);
    if (*restore) return trdcomp::tool::restore(o);
    if (*check) return trdcomp::tool::check(o);
    if (*stats) return trdcomp::tool::stats(o);
  } catch (const Error& e) {
    std::cerr << "trdcomp: error: " << e.what();
    if (e.offset() >= 0) std::cerr << " (byte offset " << e.offset() << ")";
    std::cerr << "\n";
    return *diff ? kDiffBadInput : kBadInput;
  } catch (const std::exception& e) {
    std::cerr << "trdcomp: error: " << e.what() << "\n";
    return *diff ? kDiffBadInput : kBadInput;
  }
  return kUsage;
}
