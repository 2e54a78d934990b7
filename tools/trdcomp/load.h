// Loading the message a subcommand reads: JSON, raw or packed bytes, each brought to the
// library's raw form so that every subcommand sees a message as the library restores it.
#pragma once

#include <iosfwd>
#include <vector>

#include "commands.h"
#include "message.h"

namespace trdcomp::tool {

bool looksLikeJson(const Bytes& in);
Json parseJson(const Bytes& in);

// The direction that --request or --answer asks for, or the one the header length names.
int directionOf(const Options& o, const Bytes& in);

struct Loaded {
  Message message;
  Bytes raw;                      // the message in the library's raw form
  std::size_t bytes = 0;          // of the input message
  bool packed = false;            // the input was packed
  bool json = false;              // the input was JSON
  std::vector<Warning> warnings;  // what the library found odd about the input
};

// A message from JSON, raw bytes or packed bytes (`allowPacked`: else a packed one is refused).
Loaded loadBytes(const Options& o, const Bytes& in, const Names& names, bool allowPacked);

// "warning: <message> (byte offset N)", a line each; `where` goes before the message.
void printWarnings(std::ostream& err, const std::vector<Warning>& warnings,
                   const std::string& where = "");

}  // namespace trdcomp::tool
