// Vector scanning of delimited text: finding the next character that matters
// to the CSV reader, and replacing a delimiter outside quoted text at memory
// speed. Quoted text is told by counting quotes, 64 bytes at a time: a
// prefix XOR of the quote positions marks the bytes inside quotes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ravelin::scan {

// What a substitution run carries from one call to the next.
struct SubstituteState {
  uint64_t inside = 0;         // all ones while inside quoted text, else 0
  int64_t last_boundary = -1;  // offset in the last run of the last `from` or LF outside quotes
};

// Replaces `from` by `to` outside quoted text, in place, in the whole 64-byte
// blocks at the start of [p, p+n). When `stop` is 0 to 255, it stops before
// the first block that holds that byte outside quotes. Returns the number of
// bytes done (a multiple of 64) and updates *state for them.
using SubstituteFn = size_t (*)(char* p, size_t n, char from, char to, int stop, SubstituteState* state);

struct SubstituteKernel {
  const char* name;
  SubstituteFn fn;
};

// The fastest kernel this processor runs (chosen once).
SubstituteFn BestSubstitute();
// Every kernel this processor runs, the portable one first.
std::vector<SubstituteKernel> AvailableSubstitutes();

// The first '"', `delim`, CR or LF in [p, e), or e.
const char* FindStructural(const char* p, const char* e, char delim);

}  // namespace ravelin::scan
