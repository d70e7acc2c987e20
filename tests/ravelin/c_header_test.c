/* The public header compiles as C (C99, pedantic) and links from C. */
#include <stdio.h>
#include <string.h>

#include "ravelin/ravelin.h"

static int Fail(const char* what) {
  fprintf(stderr, "c_header_test: %s\n", what);
  return 1;
}

int main(void) {
  int32_t pairs[5] = {-1, -1, -1, -1, -1};
  const int32_t n = FillToDoItemsArray("3, 5-4, 9", pairs, 4);
  if (n != 2) return Fail("FillToDoItemsArray count");
  if (pairs[0] != 3 || pairs[1] != 3 || pairs[2] != 4 || pairs[3] != 5) return Fail("FillToDoItemsArray pairs");
  if (pairs[4] != -1) return Fail("FillToDoItemsArray wrote beyond its capacity");
  if (IsUnicodeFile(NULL) != RAVELIN_E_ARGUMENT) return Fail("IsUnicodeFile(NULL)");
  if (CSVFileChangeDelimitationChar("/nonexistent/in.csv", "/tmp/out.csv", ";") != RAVELIN_E_INPUT_MISSING) {
    return Fail("missing input");
  }
  if (strcmp(RavelinResultText(RAVELIN_E_LIST), "Invalid row or column list") != 0) return Fail("message");
  return 0;
}
