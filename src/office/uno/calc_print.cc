// Worksheet.PrintOut and Range.PrintOut: the office prints the document's
// view with the sheet or the range as its selection.
#include "office/uno/calc_print.h"

#include <string>
#include <vector>

#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/view/XPrintable.hpp>

#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace {

std::string PrinterName(const Reference<css::view::XPrintable>& printable) {
  for (const auto& p : printable->getPrinter()) {
    OUString name;
    if (p.Name == "Name" && (p.Value >>= name)) return ToUtf8(name);
  }
  return {};
}

}  // namespace

void PrintSelection(CalcWorkbook& book, const Reference<css::uno::XInterface>& selection,
                    const PrintOutOptions& options) {
  if (options.preview.value_or(false)) NotSupported("PrintOut with Preview");
  const bool to_file = options.print_to_file.value_or(false);
  if (to_file && (!options.pr_to_file_name || options.pr_to_file_name->empty()))
    throw Error(ErrorKind::kAutomation, "PrintToFile needs PrToFileName");
  if (options.copies && *options.copies < 1)
    throw Error(ErrorKind::kAutomation, "Copies must be at least 1");
  book.EnsureView();  // the office prints through a document's view
  Reference<css::view::XPrintable> printable(book.component(), UNO_QUERY_THROW);
  if (options.active_printer && !options.active_printer->empty()) {
    // The office keeps its current printer when it has none of the name
    // asked for; Excel refuses the call then, and so does this.
    printable->setPrinter(ToSequence<css::beans::PropertyValue>(
        {Prop("Name", Any(ToOUString(*options.active_printer)))}));
    if (PrinterName(printable) != *options.active_printer)
      throw Error(ErrorKind::kAutomation, "there is no printer named '" + *options.active_printer + "'");
  }
  // Waiting makes the call return after the job is handed over, so the
  // watchdog covers it.
  std::vector<css::beans::PropertyValue> args{
      Prop("Selection", Any(selection)),
      Prop("Wait", Any(true)),
      Prop("CopyCount", Any(static_cast<sal_Int16>(options.copies.value_or(1)))),
      Prop("Collate", Any(options.collate.value_or(true))),
  };
  if (options.from || options.to) {
    const int32_t from = options.from.value_or(1);
    args.push_back(Prop("Pages", Any(ToOUString(std::to_string(from) + "-" +
                                                 (options.to ? std::to_string(*options.to) : "")))));
  }
  if (to_file) args.push_back(Prop("FileName", Any(ToOUString(FileUrl(*options.pr_to_file_name)))));
  printable->print(ToSequence(args));
}

}  // namespace tabulon::office::uno
