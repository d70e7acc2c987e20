#include "office/uno/calc_load.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/document/MacroExecMode.hpp>
#include <com/sun/star/document/UpdateDocMode.hpp>
#include <com/sun/star/frame/XComponentLoader.hpp>
#include <com/sun/star/frame/XLoadable.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/frame/XStorable.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/util/XCloseable.hpp>

#include "office/uno/calc_internal.h"
#include "office/uno/file_formats.h"
#include "office/uno/write_reservation.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

namespace {

// What a file's first bytes say it is.
enum class Content { kEmpty, kZip, kCompound, kBiff, kXml, kText, kBinary };

Content Sniff(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string head(4096, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<size_t>(in.gcount()));
  if (head.empty()) return Content::kEmpty;
  auto starts = [&](const char* magic, size_t n) { return head.size() >= n && head.compare(0, n, magic, n) == 0; };
  if (starts("PK\x03\x04", 4) || starts("PK\x05\x06", 4) || starts("PK\x07\x08", 4)) return Content::kZip;
  if (starts("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8)) return Content::kCompound;
  // A bare BIFF2 to BIFF4 stream begins with its BOF record.
  if (head.size() >= 4 && head[0] == '\x09' && (head[1] == '\x00' || head[1] == '\x02' || head[1] == '\x04'))
    return Content::kBiff;
  if (starts("\xFF\xFE", 2) || starts("\xFE\xFF", 2)) return Content::kText;  // UTF-16 with its mark
  size_t start = starts("\xEF\xBB\xBF", 3) ? 3 : 0;
  for (const char c : head) {
    const auto b = static_cast<unsigned char>(c);
    // Text has no control characters but tabs, line and page ends and the
    // old end-of-file mark.
    if (b < 0x20 && b != '\t' && b != '\n' && b != '\r' && b != '\f' && b != '\v' && b != 0x1A)
      return Content::kBinary;
  }
  start = head.find_first_not_of(" \t\r\n", start);
  return start != std::string::npos && head[start] == '<' ? Content::kXml : Content::kText;
}

// The contents a file's extension allows, for the workbook formats whose
// contents can be recognised. Excel refuses to open a file whose extension
// promises a format its content does not have ("the file format or file
// extension is not valid"); only the binary workbook's extension also takes
// text, HTML and XML, which it opens as what they are. Empty means no
// constraint.
std::vector<Content> AllowedContents(const std::string& extension) {
  if (extension == ".xlsx" || extension == ".xlsm" || extension == ".xltx" || extension == ".xltm" ||
      extension == ".xlam" || extension == ".xlsb")
    return {Content::kZip, Content::kCompound};  // an encrypted one is a compound file
  if (extension == ".ods" || extension == ".ots") return {Content::kZip};
  if (extension == ".fods" || extension == ".xml") return {Content::kXml};
  if (extension == ".xls" || extension == ".xlt" || extension == ".xla")
    return {Content::kCompound, Content::kBiff, Content::kZip, Content::kXml, Content::kText};
  return {};
}

void RefuseMismatchedContent(const std::string& path, Content content) {
  const std::string extension = Lower(fs::path(path).extension().string());
  const std::vector<Content> allowed = AllowedContents(extension);
  if (allowed.empty() || std::find(allowed.begin(), allowed.end(), content) != allowed.end()) return;
  throw Error(ErrorKind::kAutomation, "cannot open " + path + ": the file format or file extension is not valid (" +
                                          (content == Content::kEmpty ? "the file is empty"
                                                                      : "its content is not a " + extension + " file") +
                                          ")");
}

}  // namespace

WorkbookLoader::Loaded WorkbookLoader::Load(Session& session, const std::string& filename,
                                            const OpenOptions& options) {
  std::error_code ec;
  if (!fs::is_regular_file(filename, ec)) throw Error(ErrorKind::kAutomation, "file not found: " + filename);
  const Content content = Sniff(filename);
  RefuseMismatchedContent(filename, content);
  const std::string url = FileUrl(filename);
  std::vector<css::beans::PropertyValue> args{
      Prop("Hidden", Any(true)),
      Prop("MacroExecMode", Any(css::document::MacroExecMode::ALWAYS_EXECUTE_NO_WARN)),
      Prop("UpdateDocMode", Any(options.update_links.value_or(0) == 0
                                    ? css::document::UpdateDocMode::NO_UPDATE
                                    : css::document::UpdateDocMode::QUIET_UPDATE)),
  };
  // ReadOnly is not handed on: the spreadsheet lets a read-only workbook be
  // edited in memory and saved under another name (every edit method does
  // so), while the office refuses any change to a document loaded
  // read-only. The file itself is only ever written by SaveAs, and lock
  // files are off, so nothing else tells the two apart.
  if (options.password && !options.password->empty())
    args.push_back(Prop("Password", Any(ToOUString(*options.password))));

  // Text sources are read with the text filter: with the given delimiter
  // for Format 6, else as Excel reads them (comma for .csv, tab else).
  bool text = false;
  std::optional<Detected> detected;
  if (content != Content::kZip && content != Content::kCompound) {
    const std::string ext = Lower(fs::path(filename).extension().string());
    text = ext == ".csv" || ext == ".txt" || ext == ".prn" || ext == ".tsv" || ext == ".tab";
    if (!text) {
      detected = Detect(session, ToOUString(url));
      const std::string type = Lower(detected->type);
      text = type.find("text") != std::string::npos || type.find("csv") != std::string::npos;
      text = text && type.find("html") == std::string::npos && type.find("xml") == std::string::npos;
    }
  }
  Loaded loaded;
  if (text) {
    std::string separator = Lower(fs::path(filename).extension().string()) == ".csv" ? "44" : "9";
    if (options.format && *options.format == 6 && options.delimiter && !options.delimiter->empty())
      separator = std::to_string(static_cast<unsigned char>((*options.delimiter)[0]));
    else if (options.format && *options.format == 1)
      separator = "9";
    else if (options.format && *options.format == 2)
      separator = "44";
    else if (options.format && *options.format == 4)
      separator = "59";
    else if (options.format && *options.format == 3)
      separator = "32";
    args.push_back(Prop("FilterName", Any(OUString("Text - txt - csv (StarCalc)"))));
    args.push_back(Prop("FilterOptions", Any(ToOUString(separator + ",34,76,1,,1033,false,true"))));
    loaded.format = 6;
  }
  Reference<css::lang::XComponent> component = LoadWithoutView(session, ToOUString(url), args, detected);
  if (!component.is()) {
    // What the document alone cannot take (a file of another kind, a
    // wrong password) goes the office's usual way, which says why.
    Reference<css::frame::XComponentLoader> loader(session.desktop(), UNO_QUERY_THROW);
    if (options.read_only) args.push_back(Prop("ReadOnly", Any(*options.read_only)));
    component = loader->loadComponentFromURL(ToOUString(url), "_blank", 0,
                                             Sequence<css::beans::PropertyValue>(args.data(), args.size()));
  }
  if (!component.is())
    throw Error(ErrorKind::kAutomation, "cannot open " + filename + " (a wrong password or a damaged file)");
  auto refuse = [&](const std::string& why) {
    Reference<css::util::XCloseable> closeable(component, UNO_QUERY);
    if (closeable.is()) closeable->close(true);
    throw Error(ErrorKind::kAutomation, why);
  };
  Reference<css::sheet::XSpreadsheetDocument> spreadsheet(component, UNO_QUERY);
  if (!spreadsheet.is()) refuse(filename + " is not a spreadsheet");

  // A workbook reserved for writing: its password makes it writable, as
  // Excel's WriteResPassword does; without one it opens read-only (where
  // Excel would ask); a wrong one fails the open, as in Excel. The office
  // itself checks the password only when a person switches a window to
  // editing, so the check is made here against the verifier the import
  // kept.
  const WriteReservation reservation = ReservationOf(component);
  loaded.reservation_verifier = reservation.verifier;
  const std::string modify_password = options.write_res_password.value_or("");
  if (reservation.reserved()) {
    if (modify_password.empty())
      loaded.reserved = true;
    else if (reservation.verifier == 0)
      refuse("cannot open " + filename +
             " for writing: its write reservation is of a kind whose password cannot be checked here");
    else if (!reservation.Accepts(modify_password))
      refuse("cannot open " + filename + " for writing: the write reservation password is not correct");
  }
  // The office opens a reserved workbook (or one whose file it cannot
  // write) read-only and then refuses every change made through its API.
  // A read-only workbook is edited in memory all the same (see ReadOnly
  // above); the office is told to allow that, and whether the file itself
  // may be written is decided here alone.
  Reference<css::frame::XStorable> storable(component, UNO_QUERY);
  Reference<css::beans::XPropertySet> properties(component, UNO_QUERY);
  if (storable.is() && storable->isReadonly() && properties.is() &&
      properties->getPropertySetInfo()->hasPropertyByName("IsChangeReadOnlyEnabled"))
    properties->setPropertyValue("IsChangeReadOnlyEnabled", Any(true));
  if (loaded.format == 0) {
    Reference<css::frame::XModel> model(component, UNO_QUERY);
    if (model.is()) {
      for (const auto& p : model->getArgs()) {
        OUString filter;
        if (p.Name == "FilterName" && (p.Value >>= filter)) loaded.format = FormatOfFilter(ToUtf8(filter).c_str());
      }
    }
  }
  loaded.component = component;
  return loaded;
}

WorkbookLoader::Detected WorkbookLoader::Detect(Session& session, const OUString& url) {
  if (!detection_.is())
    detection_.set(session.Create("com.sun.star.document.TypeDetection"), UNO_QUERY_THROW);
  auto descriptor = ToSequence<css::beans::PropertyValue>({Prop("URL", Any(url))});
  Detected detected;
  detected.type = ToUtf8(detection_->queryTypeByDescriptor(descriptor, true));
  for (const auto& p : descriptor)
    if (p.Name == "FilterName") p.Value >>= detected.filter;
  return detected;
}

Reference<css::lang::XComponent> WorkbookLoader::LoadWithoutView(Session& session, const OUString& url,
                                                                 std::vector<css::beans::PropertyValue> args,
                                                                 const std::optional<Detected>& detected) {
  OUString filter;
  for (const auto& a : args)
    if (a.Name == "FilterName") a.Value >>= filter;
  if (filter.isEmpty()) {
    filter = (detected ? *detected : Detect(session, url)).filter;
    if (filter.isEmpty()) return {};
    // Only a spreadsheet filter can fill a spreadsheet document.
    auto known = spreadsheet_filters_.find(ToUtf8(filter));
    if (known == spreadsheet_filters_.end()) {
      Reference<css::container::XNameAccess> filters(session.Create("com.sun.star.document.FilterFactory"),
                                                     UNO_QUERY_THROW);
      Sequence<css::beans::PropertyValue> about;
      OUString service;
      if (filters->hasByName(filter) && (filters->getByName(filter) >>= about)) {
        for (const auto& p : about)
          if (p.Name == "DocumentService") p.Value >>= service;
      }
      const bool spreadsheet = service == "com.sun.star.sheet.SpreadsheetDocument";
      known = spreadsheet_filters_.emplace(ToUtf8(filter), spreadsheet).first;
    }
    if (!known->second) return {};
    args.push_back(Prop("FilterName", Any(filter)));
  }
  args.push_back(Prop("URL", Any(url)));
  Reference<css::lang::XComponent> model(session.Create("com.sun.star.sheet.SpreadsheetDocument"),
                                         UNO_QUERY_THROW);
  try {
    Reference<css::frame::XLoadable>(model, UNO_QUERY_THROW)->load(ToSequence(args));
  } catch (const css::uno::Exception&) {
    try {
      Reference<css::util::XCloseable>(model, UNO_QUERY_THROW)->close(true);
    } catch (const css::uno::Exception&) {
      model->dispose();
    }
    return {};
  }
  return model;
}

}  // namespace tabulon::office::uno
