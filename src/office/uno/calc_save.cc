// Workbook.SaveAs: the office's filters, and text made from the active
// sheet, written in the office's private folder and moved into the target's
// place.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/frame/XStorable.hpp>
#include <com/sun/star/table/XColumnRowRange.hpp>
#include <com/sun/star/table/XTableColumns.hpp>
#include <com/sun/star/util/XModifiable.hpp>
#include <com/sun/star/ui/XUIConfigurationManagerSupplier.hpp>

#include "office/uno/calc_workbook.h"
#include "office/uno/save_files.h"
#include "office/uno/text_output.h"
#include "office/uno/write_reservation.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

namespace {

// The store argument that makes the office write `reservation`: the
// binary formats' verifier as a number, a salted hash as the named values
// its imports produce (PBKDF2 as bytes, as the OpenDocument import leaves
// it; a spun hash as base64 text, as the Open XML import does).
Any ReservationArgument(const WriteReservation& reservation) {
  if (!reservation.salted()) return Any(static_cast<sal_Int32>(reservation.verifier));
  auto bytes = [](const Bytes& b) {
    return Sequence<sal_Int8>(reinterpret_cast<const sal_Int8*>(b.data()), static_cast<sal_Int32>(b.size()));
  };
  Any salt, hash;
  if (reservation.pbkdf2()) {
    salt <<= bytes(reservation.salt);
    hash <<= bytes(reservation.hash);
  } else {
    salt <<= ToOUString(Base64Encode(reservation.salt));
    hash <<= ToOUString(Base64Encode(reservation.hash));
  }
  return Any(ToSequence<css::beans::PropertyValue>({
      Prop("algorithm-name", Any(ToOUString(reservation.algorithm))),
      Prop("salt", salt),
      Prop("iteration-count", Any(static_cast<sal_Int32>(reservation.count))),
      Prop("hash", hash),
  }));
}

// A reservation's kind and where the office can write it, for messages.
std::string KindOfReservation(const WriteReservation& reservation) {
  if (!reservation.salted()) return "a 16-bit verifier, which only Excel binary and Open XML files keep";
  if (reservation.pbkdf2()) return "a PBKDF2 hash, which only OpenDocument files keep";
  return "a " + reservation.algorithm + " hash, which only Open XML and OpenDocument files keep";
}

}  // namespace

void CalcWorkbook::StoreText(const std::string& temp, const FileFormat& format) {
  const SheetRef active = ActiveSheetRef();
  if (display_formulas_) {
    // With formulas shown, Excel writes each cell's formula in its own
    // syntax; the office's filter would write its own syntax, so the text is
    // made here from the cells' formulas.
    const CellRect used = UsedArea(active);
    const CellRect area{0, 0, used.last_row, used.last_column};
    const Block block = ReadFormulas(active, area);
    const bool empty = used == CellRect{} && std::holds_alternative<std::monostate>(block[0][0]);
    const char delimiter = format.layout == TextLayout::kPrinter ? '\t' : format.delimiter;
    const std::string text =
        empty ? std::string() : DelimitedText(block, delimiter, format.layout != TextLayout::kPrinter);
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) throw Error(ErrorKind::kAutomation, "cannot write " + temp);
    return;
  }
  StoreSheetText(active, temp, format);
}

void CalcWorkbook::StoreSheetText(const SheetRef& sheet, const std::string& temp, const FileFormat& format) {
  // Field separator, text delimiter, character set (UTF-8), first line,
  // cell formats, language (en-US), quote all text, detect special numbers,
  // save as shown, export formulas, remove spaces, sheet (1-based).
  const bool printer = format.layout == TextLayout::kPrinter;
  const std::string options = std::to_string(printer ? 9 : static_cast<int>(format.delimiter)) +
                              "," + (printer ? "" : "34") + ",76,1,,1033,false,true,true,false,false," +
                              std::to_string(SheetIndex(sheet) + 1);
  auto args = ToSequence<css::beans::PropertyValue>({
      Prop("FilterName", Any(ToOUString(format.filter))),
      Prop("FilterOptions", Any(ToOUString(options))),
      Prop("Overwrite", Any(true)),
  });
  Reference<css::frame::XStorable> storable(component_, UNO_QUERY_THROW);
  storable->storeToURL(ToOUString(FileUrl(temp)), args);
  // Naming a sheet makes the filter put "-<sheet name>" before the file's
  // extension; the temporary name is unique, so its stem finds the file.
  std::error_code ec;
  if (fs::exists(temp, ec)) return;
  const fs::path t(temp);
  const std::string stem = t.stem().string() + "-";
  for (const auto& entry : fs::directory_iterator(t.parent_path(), ec)) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, stem.size(), stem) == 0 && entry.path().extension() == t.extension()) {
      fs::rename(entry.path(), t, ec);
      return;
    }
  }
}

void CalcWorkbook::SaveAs(const std::string& given_name, const SaveAsOptions& options) {
  // A relative name is the host's: the office has a working folder of its own.
  const std::string filename = AbsolutePath(given_name);
  if (unborn_.OpenUnborn() && unborn_.copy() && !display_formulas_ && !filename.empty() &&
      options.password.value_or("").empty() && options.write_res_password.value_or("").empty()) {
    const int32_t number = options.file_format.value_or(51);
    const FileFormat* format = FindFileFormat(number);
    if (format != nullptr && format->filter != nullptr && format->layout == TextLayout::kDelimited &&
        app_->CallKeepingCopy("Workbook.SaveAs", [&] { return SaveCopyDirectly(filename, *format, number); }))
      return;
  }
  Call("Workbook.SaveAs", [&] {
    const int32_t number = options.file_format.value_or(format_ != 0 ? format_ : 51);
    const FileFormat* format = FindFileFormat(number);
    if (format == nullptr || format->filter == nullptr)
      throw Error(ErrorKind::kAutomation,
                  "file format " + std::to_string(number) + " cannot be written here");
    const std::string password = options.password.value_or("");
    if (!password.empty() && !format->encrypts)
      throw Error(ErrorKind::kAutomation, "file format " + std::to_string(number) +
                                              " cannot be written with a password here");
    // A write reservation is what the office calls a password to modify;
    // it writes one into the workbook formats only.
    const ReservationStore store = ReservationStoreOf(format->filter);
    const std::string modify_password = options.write_res_password.value_or("");
    if (!modify_password.empty() && store == ReservationStore::kNone)
      throw Error(ErrorKind::kAutomation, "file format " + std::to_string(number) +
                                              " cannot be written with a write reservation password here");
    if (filename.empty()) throw Error(ErrorKind::kAutomation, "no file name");
    std::error_code same_ec;
    if (read_only_ && !path_.empty() && fs::equivalent(filename, path_, same_ec))
      throw Error(ErrorKind::kAutomation, "cannot save over " + path_ + ": it was opened read-only");
    // Without the argument the workbook keeps the reservation it was opened
    // with, as Excel keeps a workbook's write password (the office would
    // drop it); where the format cannot hold that kind, it is made anew
    // from the password that lifted it, and without that password the save
    // is refused rather than the protection dropped. An empty password
    // given removes it. Formats without reservations (text, PDF, ...)
    // carry none, as in Excel.
    std::optional<WriteReservation> reservation;
    std::string reservation_password = reservation_password_;
    if (!modify_password.empty()) {
      reservation = NewReservation(store, modify_password);
      reservation_password = modify_password;
    } else if (!options.write_res_password && reservation_.reserved() && store != ReservationStore::kNone) {
      if (reservation_.FitsIn(store))
        reservation = reservation_;
      else if (!reservation_password_.empty())
        reservation = NewReservation(store, reservation_password_);
      else
        throw Error(ErrorKind::kAutomation,
                    "file format " + std::to_string(number) + " cannot keep the write reservation of " + name_ +
                        " (" + KindOfReservation(reservation_) +
                        "): open the workbook with its write reservation password, or give the copy one of its own");
    }

    // The dBase writer is the office's database driver, a separate package.
    if (std::strcmp(format->filter, "dBase") == 0 &&
        access((app_->session().program_dir() + "/libdbaselo.so").c_str(), R_OK) != 0)
      throw Error(ErrorKind::kAutomation,
                  "file format " + std::to_string(number) +
                      " needs the office's database drivers (libreoffice-base-drivers)");

    // Written in the office's private folder and moved into place: a failed
    // or killed save leaves no half-written file and an older file of that
    // name untouched. Some filters (dBase) need their own extension on the
    // file.
    const SaveTemporaries temporaries(app_->session().profile_dir(), format->extension);
    const std::string& written = temporaries.written;
    const std::string& finished = temporaries.finished;

    if (format->layout == TextLayout::kNone) {
      std::vector<css::beans::PropertyValue> args{Prop("FilterName", Any(ToOUString(format->filter))),
                                                  Prop("Overwrite", Any(true))};
      if (!password.empty()) args.push_back(Prop("Password", Any(ToOUString(password))));
      if (reservation) args.push_back(Prop("ModifyPasswordInfo", ReservationArgument(*reservation)));
      // The office writes a new document's (empty) user-interface
      // settings into an OpenDocument file; a document made without a view
      // has none until asked for them, so it is asked, and the file is the
      // one a new workbook with a view gives.
      if (made_without_view_ && std::strcmp(format->filter, "calc8") == 0)
        Reference<css::ui::XUIConfigurationManagerSupplier>(component_, UNO_QUERY_THROW)->getUIConfigurationManager();
      Reference<css::frame::XStorable> storable(component_, UNO_QUERY_THROW);
      storable->storeToURL(ToOUString(FileUrl(written)),
                           Sequence<css::beans::PropertyValue>(args.data(), args.size()));
    } else {
      StoreText(written, *format);
      std::vector<int> widths;
      if (format->layout == TextLayout::kPrinter) {
        // Each column at least as wide as it is on the sheet, counted in
        // characters of the default font (about 2.26 mm per 8.43 characters).
        const CellRect used = UsedArea(ActiveSheetRef());
        Reference<css::table::XColumnRowRange> crr(ActiveSheetRef(), UNO_QUERY_THROW);
        auto columns = crr->getColumns();
        for (int32_t c = 0; c <= used.last_column; ++c) {
          Reference<css::beans::XPropertySet> column(columns->getByIndex(c), UNO_QUERY_THROW);
          sal_Int32 width = 0;
          column->getPropertyValue("Width") >>= width;
          widths.push_back(static_cast<int>(width * 8.43 / 2258.0 + 0.5));
        }
      }
      FinishTextInPlace(written, finished, filename, *format, widths);
    }
    MoveIntoPlace(written, filename);
    name_ = fs::path(filename).filename().string();
    path_ = filename;
    format_ = number;
    if (reservation) {
      reservation_ = *reservation;
      reservation_password_ = reservation_password;
    } else if (options.write_res_password) {
      reservation_ = {};
      reservation_password_.clear();
    }
    Reference<css::util::XModifiable>(component_, UNO_QUERY_THROW)->setModified(false);
  });
}

}  // namespace tabulon::office::uno
