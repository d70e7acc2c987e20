/*
 * Ravelin: streaming rewrites of delimited text files (CSV and TXT).
 *
 * This header is the whole public interface of libravelin.so and valid C
 * (C99 or later) as well as C++. Include nothing else from the library.
 *
 * ------------------------------------------------------------------------
 * 1. Calling conventions
 * ------------------------------------------------------------------------
 * Every function takes 8-bit, zero-terminated strings and 32-bit whole
 * numbers by value and returns a signed 32-bit result: RAVELIN_OK (0) or
 * one of the negative codes of section 7. No function keeps a pointer after
 * it returns, changes the strings it is given, or writes to stdout/stderr.
 * The functions hold no global state and may run on several threads at
 * once, on different files.
 *
 * Paths are passed to the operating system unchanged. An input must be a
 * regular file. Relative paths are relative to the working directory.
 *
 * ------------------------------------------------------------------------
 * 2. Outputs are replaced whole or not at all
 * ------------------------------------------------------------------------
 * A function that writes an output file writes a temporary file in the
 * output's folder (named ".<name>.ravelin-<random>") and renames it over
 * the output only when every byte is written. On any failure the temporary
 * file is removed and an existing output keeps its old content. Hence the
 * output may be the input itself: the input is read to its end before it
 * is replaced. A new output is created with mode 0666 less the umask; an
 * output that already exists keeps its permission bits, and one that is
 * not writable (read-only) is refused with RAVELIN_E_OUTPUT. When the output
 * path is a symbolic link, the file it points to is replaced. The files
 * are not flushed to stable storage (no fsync): a power cut may lose the
 * last result, never a half-written one that a rename published.
 *
 * The functions that append to an existing file (ConcatenateTwoTextFiles,
 * ConcatenateTwoTextFilesEx) cut the file back to its original length when
 * the append fails, so the file holds either its old text or the joined
 * text.
 *
 * ------------------------------------------------------------------------
 * 3. Encodings
 * ------------------------------------------------------------------------
 * A file is one of:
 *   - UTF-16LE: starts with the byte-order mark FF FE;
 *   - UTF-16BE: starts with the byte-order mark FE FF;
 *   - UTF-8 with BOM: starts with EF BB BF;
 *   - 8-bit text: anything else (UTF-8 without BOM, ASCII, a code page).
 * Only the first bytes decide; the content is never guessed at.
 *
 * A byte-order mark is not text: the rewrites copy it to the start of
 * their output unchanged and never treat it as part of the first field.
 * UTF-16 files are rewritten correctly: their text is processed character
 * by character and written back in the same byte order (unpaired
 * surrogates survive unchanged). A UTF-16 file with an odd number of bytes
 * is refused with RAVELIN_E_ENCODING.
 *
 * Every character argument (delimiter, replacement, pad character) is one
 * ASCII byte, 0x01 to 0x7F. The rewrites only ever look at, insert or
 * remove ASCII characters, and no byte of a multi-byte UTF-8 character is
 * ASCII, so UTF-8 and 8-bit text pass through byte for byte.
 *
 * ------------------------------------------------------------------------
 * 4. The CSV dialect
 * ------------------------------------------------------------------------
 * The CSV functions read comma-separated text as RFC 4180 describes it:
 *   - a record ends at a line break, LF or CR LF; a CR that is not
 *     followed by LF is an ordinary character (no rewrite lets it come to
 *     stand before an LF: CropCSVFileToSpecificColumns quotes a kept field
 *     ending with one when it comes to end its line, TrimCSVFile keeps the
 *     spaces after one); the last record may end with or without a line
 *     break, and a line break at the very end of the file does not start
 *     another record;
 *   - fields are separated by ',' (CSVFileChangeDelimitationChar writes
 *     another delimiter, TXTFileChangeDelimitationChar reads any);
 *   - a field whose first character is '"' is quoted: it runs to the
 *     matching closing quote and may hold delimiters, line breaks and
 *     quotes, a quote being written twice ("" stands for one ");
 *   - quoted text is found by counting quotes: every quote character that
 *     is not one of a doubled pair inside quoted text opens or closes
 *     quoted text. For well-formed input this is exactly RFC 4180. Input
 *     that is not well-formed (a quote inside an unquoted field, text after
 *     a closing quote) is read by the same rule and copied as it stands
 *     wherever a function has no reason to change it.
 * A field's value is its text without the enclosing quotes, with "" read
 * as ". A line with no characters at all (just a line break) is an empty
 * line: it counts as a row for row numbers, and the rewrites that work on
 * fields (EncaseEachFieldWithQuotes, PadCSVFileWithASpaces,
 * PadCSVFileForFixedLengthFields, TrimCSVFile) pass it through unchanged
 * rather than treat it as one empty field.
 *
 * ------------------------------------------------------------------------
 * 5. Lists of rows, columns and items
 * ------------------------------------------------------------------------
 * CropCSVFileToSpecificRows, CropCSVFileToSpecificColumns,
 * PadCSVFileForFixedLengthFields and FillToDoItemsArray read the same
 * grammar:
 *     list  = item *( "," item )
 *     item  = blanks [ number blanks [ "-" blanks number blanks ] ]
 *     number = one or more decimal digits, value 0 to 2147483647
 *     blanks = any number of spaces and tabs
 * "a-b" is a range; a reversed range "5-3" means 3 to 5. An empty item
 * (as in "1,,2" or "1,") is ignored. Anything else, for example "abc",
 * "-5", "5-", "1-2-3", "Sales-2023", "+3", "1.5" or a number above
 * 2147483647, does not fit the grammar.
 * Rows and columns count from 1. The file functions refuse a list in
 * which an item does not fit, a 0, or no item at all with
 * RAVELIN_E_LIST; FillToDoItemsArray skips such items instead.
 *
 * ------------------------------------------------------------------------
 * 6. Speed and memory
 * ------------------------------------------------------------------------
 * Files are streamed in blocks of a few MiB; memory use does not grow with
 * the file, a line or a field (only ConcatenateSpreadsheet keeps a header,
 * of at most 1 MiB, to compare). Where a function must look back (a field
 * that turns out to need quotes, a line that turns out not to be empty),
 * it reads the input again rather than holding it.
 */
#ifndef RAVELIN_RAVELIN_H_
#define RAVELIN_RAVELIN_H_

#include <stdint.h>

#if defined(_WIN32)
#if defined(RAVELIN_BUILDING_LIBRARY)
#define RAVELIN_EXPORT __declspec(dllexport)
#else
#define RAVELIN_EXPORT __declspec(dllimport)
#endif
#else
#define RAVELIN_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * 7. Result codes
 * ------------------------------------------------------------------------ */
/* Success. FillToDoItemsArray returns a count instead, IsUnicodeFile one of
   the RAVELIN_TEXT_ values. */
#define RAVELIN_OK 0
/* An input file does not exist, is not a regular file or cannot be opened
   for reading; for the list functions, a pattern that matches no file. */
#define RAVELIN_E_INPUT_MISSING (-1)
/* The output cannot be created: its folder is missing or not writable, the
   path names a folder, or (appending) the first file cannot be opened for
   writing. Nothing was written. */
#define RAVELIN_E_OUTPUT (-2)
/* A NULL pointer, an empty path or an invalid character or number argument
   (see each function). Nothing was read or written. */
#define RAVELIN_E_ARGUMENT (-3)
/* A row or column list that does not fit the grammar of section 5, holds
   a 0, or names nothing. */
#define RAVELIN_E_LIST (-4)
/* Reading an input failed part way. The output is untouched. */
#define RAVELIN_E_READ (-5)
/* Writing, appending or publishing the output failed part way (a full
   disk, a file size limit). The output is untouched (see section 2). */
#define RAVELIN_E_WRITE (-6)
/* The text cannot be processed without damage: a UTF-16 file with an odd
   number of bytes, or files of different encodings to be joined. */
#define RAVELIN_E_ENCODING (-7)
/* Memory could not be allocated. */
#define RAVELIN_E_MEMORY (-8)
/* An unexpected internal failure. */
#define RAVELIN_E_INTERNAL (-9)

/* The message of a result code, fixed English text, or NULL for a value
   that is not a code (a non-negative value other than 0 included). */
static inline const char* RavelinResultText(int32_t code) {
  switch (code) {
    case RAVELIN_OK: return "Success";
    case RAVELIN_E_INPUT_MISSING: return "Input file does not exist or cannot be read";
    case RAVELIN_E_OUTPUT: return "Output file cannot be created";
    case RAVELIN_E_ARGUMENT: return "Invalid argument";
    case RAVELIN_E_LIST: return "Invalid row or column list";
    case RAVELIN_E_READ: return "Error reading input file";
    case RAVELIN_E_WRITE: return "Error writing output file";
    case RAVELIN_E_ENCODING: return "Text encoding cannot be processed";
    case RAVELIN_E_MEMORY: return "Out of memory";
    case RAVELIN_E_INTERNAL: return "Internal error";
    default: return 0;
  }
}

/* Results of IsUnicodeFile. */
#define RAVELIN_TEXT_8BIT 0
#define RAVELIN_TEXT_UTF16LE 1
#define RAVELIN_TEXT_UTF16BE 2
#define RAVELIN_TEXT_UTF8_BOM 3

/* ------------------------------------------------------------------------
 * 8. Functions
 * ------------------------------------------------------------------------
 * "in" is the input path, "out" the output path (section 2); out may equal
 * in. Each function returns RAVELIN_E_ARGUMENT for a NULL or empty path,
 * RAVELIN_E_INPUT_MISSING, RAVELIN_E_OUTPUT, RAVELIN_E_READ,
 * RAVELIN_E_WRITE and RAVELIN_E_ENCODING as section 7 says, and the
 * further codes named with it.
 */

/* Replaces every `character` outside quoted text by `replacement`, byte
   for byte, and changes nothing else: no field is quoted or unquoted, and a
   `replacement` already present in unquoted text stays as it is. Quoted
   text is found as section 4 says, whatever the delimiter.
   `character` and `replacement` are one ASCII byte each and not '"'
   (RAVELIN_E_ARGUMENT otherwise). They may be equal (a copy). Use it with
   ";" and "," to turn a file written by CSVFileChangeDelimitationChar(...,
   ";") back into commas. */
RAVELIN_EXPORT int32_t TXTFileChangeDelimitationChar(const char* in, const char* out, const char* character,
                                                     const char* replacement);

/* Changes the delimiter of a comma-separated file from ',' to `character`.
   Field text is copied byte for byte; commas inside quoted fields stay.
   A field that holds `character` outside quoted text (an unquoted field
   such as 1;5 when `character` is ";") would split under the new delimiter,
   so it is written quoted: enclosed in '"' with each '"' in it doubled;
   its value is then the field's original text. Consequently changing ','
   to `character` and back with TXTFileChangeDelimitationChar gives the
   input byte for byte, except that such fields come back quoted (same
   values).
   `character` is one ASCII byte other than '"', CR and LF
   (RAVELIN_E_ARGUMENT otherwise); "," gives a copy. */
RAVELIN_EXPORT int32_t CSVFileChangeDelimitationChar(const char* in, const char* out, const char* character);

/* Encloses every field that is not quoted in '"', doubling each '"' it
   holds (so its value becomes its former text). Quoted fields, delimiters,
   line breaks and empty lines stay as they are; an empty field becomes
   "". Example: a,"b",,c"d  ->  "a","b","","c""d" */
RAVELIN_EXPORT int32_t EncaseEachFieldWithQuotes(const char* in, const char* out);

/* Pads every empty field to one space, so that no field is empty: an
   unquoted empty field becomes a single space, "" becomes " ". Fields with
   text, and empty lines, stay as they are. Example, with _ for a space:
   a,,"",b,  ->  a,_,"_",b,_ */
RAVELIN_EXPORT int32_t PadCSVFileWithASpaces(const char* in, const char* out);

/* Removes every record in which all fields are empty: an empty line, a line
   of delimiters only such as ,,, and lines of empty quoted fields such as
   "","". A record with any other character, a space included, stays. A
   record that spans several lines (quoted line breaks) is one record. */
RAVELIN_EXPORT int32_t RemoveEmptyLinesFromCSVFile(const char* in, const char* out);

/* Keeps the records whose numbers (1-based; a record with quoted line
   breaks is one record; empty lines count) are in `rowlist`, in file order
   and each once whatever the order and repetitions of the list; each with
   its own line break. Rows beyond the end are ignored. `rowlist` follows
   section 5 (RAVELIN_E_LIST otherwise). */
RAVELIN_EXPORT int32_t CropCSVFileToSpecificRows(const char* in, const char* out, const char* rowlist);

/* Keeps the fields whose column numbers (1-based) are in `collist`, in
   file order, joined by ','. Every record stays, with its line break; a
   record with fewer fields keeps those it has, and a record with none of
   the columns becomes an empty line. `collist` follows section 5
   (RAVELIN_E_LIST otherwise). */
RAVELIN_EXPORT int32_t CropCSVFileToSpecificColumns(const char* in, const char* out, const char* collist);

/* Pads the fields of the listed columns to a fixed length: a field whose
   value is shorter than `length` characters gets `padchar` repeated up to
   `length`, after its text (padleft 0) or before it (padleft non-zero);
   inside the quotes when the field is quoted. Longer fields are never cut.
   Characters are counted in the value ("" counts one): a UTF-8 sequence is
   one character, and so is every byte that is not part of one.
   `length` is 1 to 65536; `padchar` is one ASCII byte other than '"', ',',
   CR and LF; `columnlist` follows section 5, and an empty (or blank)
   `columnlist` means every column (RAVELIN_E_ARGUMENT / RAVELIN_E_LIST
   otherwise).
   Empty lines stay as they are. Example, length 4, "_", right, all:
   a,"bc",defgh  ->  a___,"bc__",defgh */
RAVELIN_EXPORT int32_t PadCSVFileForFixedLengthFields(const char* in, const char* out, int32_t length,
                                                      const char* padchar, int32_t padleft, const char* columnlist);

/* Removes the control characters (bytes 0x00 to 0x1F and 0x7F: tab, CR
   and LF included) that stand inside quoted text, so that every record
   fits on one line. Text outside quotes, the quotes themselves and the
   line breaks between records stay. Bytes 0x80 and above are never
   touched. Example: "a<LF>b",c<LF> -> "ab",c<LF> */
RAVELIN_EXPORT int32_t RemoveControlCharactersFromFileInQuotesOnly(const char* in, const char* out);

/* Removes the spaces (0x20 only; tabs are text) at both ends of every
   field value: before and after an unquoted field's text, around the
   quotes of a quoted field and inside its quotes. Example, with _ for a
   space:  _a_,_"__b__"_,c__  ->  a,"b",c */
RAVELIN_EXPORT int32_t TrimCSVFile(const char* in, const char* out);

/* Appends the text of `target` to the end of the file `source`: `source`
   is modified, `target` only read. Nothing is inserted between the two
   texts (no line break is added); only a byte-order mark at the start of
   `target` is left out when `source` already starts its text with the
   matching encoding. Both files must exist. To join pieces p1..pN into
   one file: call ConcatenateTwoTextFiles(p1, pi) for i = 2..N, then rename
   p1.
   Encodings (section 3): when `source` is empty (0 bytes) it receives
   `target` whole, byte-order mark included. Otherwise the two must agree:
   UTF-16 only with UTF-16 of the same byte order; UTF-8 with BOM and 8-bit
   text go together (a UTF-8 BOM of `target` is dropped). Any other pair is
   refused with RAVELIN_E_ENCODING and nothing changes. `source` and
   `target` may be the same file: its text then appears twice. On failure
   `source` is cut back to its original length (section 2). */
RAVELIN_EXPORT int32_t ConcatenateTwoTextFiles(const char* source, const char* target);

/* As ConcatenateTwoTextFiles, with two insertions before the appended text,
   written in the encoding of the result:
   - lAddPageBreak non-zero: a form feed (0x0C), so that the appended text
     starts a new page when printed;
   - lPlaceFilePath non-zero: a line holding the path `target` exactly as
     passed (taken as UTF-8 for a UTF-16 file), ended by the line break that
     `target` uses (CR LF when its first line break, looked for in its
     first 64 KiB, is CR LF; else LF); if `source` has text that does not
     end with a line break, one is added before everything else so that
     the path stands on its own line.
   The order is: [line break] [form feed] [path line] text of `target`.
   With both flags 0 it is exactly ConcatenateTwoTextFiles. The insertions
   are written even when `target` is empty. */
RAVELIN_EXPORT int32_t ConcatenateTwoTextFilesEx(const char* source, const char* target, int32_t lAddPageBreak,
                                                 int32_t lPlaceFilePath);

/* Writes `target` with the lines of `source` that are not blank: a blank
   line holds nothing but spaces, tabs and CR before its LF (or before the
   end of the file). Quotes mean nothing here: this is plain text. Every
   other line is copied with its line break; a last line without one stays
   without. */
RAVELIN_EXPORT int32_t DeleteEmptyLinesFromTextFile(const char* source, const char* target);

/* Tells the encoding of a file by its first bytes (section 3):
   RAVELIN_TEXT_UTF16LE (1), RAVELIN_TEXT_UTF16BE (2), RAVELIN_TEXT_UTF8_BOM
   (3), or RAVELIN_TEXT_8BIT (0) for anything else, an empty file included.
   Negative codes: RAVELIN_E_ARGUMENT, RAVELIN_E_INPUT_MISSING,
   RAVELIN_E_READ. Note that a caller testing "non-zero means Unicode"
   must test the negative codes first. */
RAVELIN_EXPORT int32_t IsUnicodeFile(const char* path);

/* Parses `list` (section 5) into (first, last) pairs in list order: the
   k-th item that fits the grammar goes to array[2k] (the smaller number)
   and array[2k+1] (the larger); a single number n gives (n, n). Items that
   do not fit are skipped; duplicates are kept. Pairs are written while
   2k+1 < capacity, so no element at index capacity or above is ever
   touched (capacity 1000 fills at most indexes 0..999, 500 pairs); the
   items beyond are dropped silently. Elements not written keep their
   values.
   Returns the number of pairs written, 0 for an empty list or one in which
   nothing fits; RAVELIN_E_ARGUMENT for a NULL `list` or `array` or a
   negative capacity. */
RAVELIN_EXPORT int32_t FillToDoItemsArray(const char* list, int32_t* array, int32_t capacity);

/* ---- Joining many files into one -------------------------------------
   The four functions below write `out` (section 2) from the files named by
   `inputs`: items separated by '|'; an item containing '*', '?' or '['
   is a shell pattern (glob) and stands for the regular files it matches,
   in byte order of their paths, leaving out `out` itself so that a result
   from an earlier run is not joined again; any other item is a path and
   must exist. Empty items are ignored. Example: "/data/jan.csv|/data/feb*.csv".
   A pattern that matches nothing gives RAVELIN_E_INPUT_MISSING; no item at
   all gives RAVELIN_E_ARGUMENT.
   Encodings: the first file with any content decides; the others must go
   with it as in ConcatenateTwoTextFiles (RAVELIN_E_ENCODING otherwise). The
   output starts with that file's byte-order mark; the others' marks are
   left out.
   Line breaks: when a file's text does not end with a line break and more
   text follows, a line break (in the style of that file's first one, LF
   if it has none) is written between them, so records never run
   together. Empty files contribute nothing.
   "First record": a file's first CSV record (section 4), which may span
   several lines when it holds quoted line breaks. */

/* Joins the files whole, in order. */
RAVELIN_EXPORT int32_t ConcatenateAll(const char* inputs, const char* out);

/* Joins the files in order, leaving out the first record of every file
   but the first: for files that each start with the same header line. */
RAVELIN_EXPORT int32_t ConcatenateAllSkipFirstLine(const char* inputs, const char* out);

/* Joins CSV files that may or may not repeat a header: the first file is
   taken whole; a later file's first record is left out when it equals the
   first file's first record (same bytes, line break aside), and kept
   otherwise. A first record longer than 1 MiB is never taken for a
   header. */
RAVELIN_EXPORT int32_t ConcatenateSpreadsheet(const char* inputs, const char* out);

/* As ConcatenateSpreadsheet, adding one field at the end of every record:
   the name (without folder) of the file the record came from, quoted when
   it holds ',', '"', CR or LF. Empty lines stay empty.
   `columntitle` non-empty: the first file's first record is a header and
   gets `columntitle` as its new field instead of a file name; later first
   records equal to that header are left out as in ConcatenateSpreadsheet.
   `columntitle` NULL or empty: there is no header; every record, the first
   ones included, gets its file name and no record is left out.
   Example, inputs "a.csv|b.csv" holding "id\n1\n" and "id\n2\n", title
   "source": id,source / 1,a.csv / 2,b.csv (one record per line). */
RAVELIN_EXPORT int32_t ConcatenateSpreadsheetAddColumnWithOriginalFileName(const char* inputs, const char* out,
                                                                          const char* columntitle);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* RAVELIN_RAVELIN_H_ */
