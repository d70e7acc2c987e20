// A program outside the tree, built against an installed Tabulon: it uses
// the control (a text method, the property bag, the result-code table) and
// the text library's C interface, and prints what it saw.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include <ravelin/ravelin.h>
#include <tabulon/property_bag.h>
#include <tabulon/result_codes.h>
#include <tabulon/tabulon_ctrl.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: consumer FOLDER\n";
    return 2;
  }
  const std::string folder = argv[1];
  std::string in = folder + "/in.csv";
  std::string out = folder + "/out.csv";
  std::ofstream(in) << "a,b\n\n1,2\n";

  tabulon::MemoryPropertyBag bag;
  bag.WriteProperty("bUseStateFile", false);
  tabulon::TabulonCtrl control(bag);
  const int32_t code = control.csvRemoveEmptyLines(in, out);
  std::ostringstream text;
  text << std::ifstream(out).rdbuf();

  int32_t pairs[1001] = {};
  const int32_t count = FillToDoItemsArray("1-3,5", pairs, 1000);

  std::cout << "code " << code << "\n"
            << "output " << (text.str() == "a,b\n1,2\n" ? "right" : "wrong") << "\n"
            << "pairs " << count << "\n"
            << "messages " << (tabulon::ResultMessages().empty() ? "none" : "some") << "\n";
  return code == 0 && text.str() == "a,b\n1,2\n" && count == 2 ? 0 : 1;
}
