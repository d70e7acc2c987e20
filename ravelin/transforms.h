// The rewrites, each from the text of an Input (after any byte-order mark;
// UTF-16 already turned into UTF-8) to an Output. The public header states
// what each one does; rewrite_file.h runs them on files.
#pragma once

#include <cstdint>

#include "io.h"
#include "item_list.h"
#include "status.h"

namespace ravelin {

// Replaces `from` by `to` outside quoted text. With quote_fields, a field
// holding `to` outside quoted text is written quoted, so that it stays one
// field under the delimiter `to` (fields end at `from` and LF).
Status ChangeCharacter(Input& in, Output& out, char from, char to, bool quote_fields);

Status EncaseFields(Input& in, Output& out);
Status PadEmptyFields(Input& in, Output& out);
Status RemoveEmptyRecords(Input& in, Output& out);
Status KeepRows(Input& in, Output& out, const RangeSet& rows);
Status KeepColumns(Input& in, Output& out, const RangeSet& columns);

struct FixedLength {
  uint32_t length;
  char pad;
  bool pad_left;
  RangeSet columns;
};
Status PadToFixedLength(Input& in, Output& out, const FixedLength& layout);

Status RemoveQuotedControls(Input& in, Output& out);
Status TrimFields(Input& in, Output& out);

// Plain text, quotes ignored: drops lines of spaces, tabs and CRs only.
Status RemoveBlankLines(Input& in, Output& out);

}  // namespace ravelin
