/* A stand-in for the text library: records what the control passed and
   answers with values a test can recognise. */
#include <ctype.h>
#include <stdint.h>
#include <string.h>

char fake_last_path[4096];
int32_t fake_last_pad_left = -99;
int32_t fake_last_length = -99;

int32_t CSVFileChangeDelimitationChar(char* in, char* out, char* ch) {
  (void)out;
  strncpy(fake_last_path, in, sizeof fake_last_path - 1);
  /* Change the caller's text in place: the control must hand it back. */
  for (char* p = ch; *p; ++p) *p = (char)toupper((unsigned char)*p);
  return -4242;
}

int32_t PadCSVFileForFixedLengthFields(char* in, char* out, int32_t length, char* pad, int32_t pad_left, char* col) {
  (void)in; (void)out; (void)pad; (void)col;
  fake_last_pad_left = pad_left;
  fake_last_length = length;
  return 17;
}

int32_t IsUnicodeFile(char* path) {
  strncpy(fake_last_path, path, sizeof fake_last_path - 1);
  return strstr(path, "wide") != NULL ? -7 : 0;
}
