#include "office/uno/calc_load.h"

#include <cstring>
#include <filesystem>
#include <fstream>

#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/document/MacroExecMode.hpp>
#include <com/sun/star/document/UpdateDocMode.hpp>
#include <com/sun/star/frame/XComponentLoader.hpp>
#include <com/sun/star/frame/XLoadable.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/util/XCloseable.hpp>

#include "office/uno/calc_internal.h"
#include "office/uno/file_formats.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;

namespace {

// Whether a file is a text source for the text import: never a workbook
// container (OLE2, zip), else by extension, else by the office's type
// detection.
bool StartsWith(const std::string& path, const char* magic, size_t n) {
  std::ifstream in(path, std::ios::binary);
  std::string head(n, '\0');
  if (!in.read(head.data(), static_cast<std::streamsize>(n))) return false;
  return std::memcmp(head.data(), magic, n) == 0;
}

bool IsWorkbookContainer(const std::string& path) {
  return StartsWith(path, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) || StartsWith(path, "PK\x03\x04", 4);
}

}  // namespace

WorkbookLoader::Loaded WorkbookLoader::Load(Session& session, const std::string& filename,
                                            const OpenOptions& options) {
  std::error_code ec;
  if (!fs::is_regular_file(filename, ec)) throw Error(ErrorKind::kAutomation, "file not found: " + filename);
  const std::string url = FileUrl(filename);
  std::vector<css::beans::PropertyValue> args{
      Prop("Hidden", Any(true)),
      Prop("MacroExecMode", Any(css::document::MacroExecMode::ALWAYS_EXECUTE_NO_WARN)),
      Prop("UpdateDocMode", Any(options.update_links.value_or(0) == 0
                                    ? css::document::UpdateDocMode::NO_UPDATE
                                    : css::document::UpdateDocMode::QUIET_UPDATE)),
  };
  if (options.read_only) args.push_back(Prop("ReadOnly", Any(*options.read_only)));
  if (options.password && !options.password->empty())
    args.push_back(Prop("Password", Any(ToOUString(*options.password))));

  // Text sources are read with the text filter: with the given delimiter
  // for Format 6, else as Excel reads them (comma for .csv, tab else).
  bool text = false;
  std::optional<Detected> detected;
  if (!IsWorkbookContainer(filename)) {
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
    component = loader->loadComponentFromURL(ToOUString(url), "_blank", 0,
                                             Sequence<css::beans::PropertyValue>(args.data(), args.size()));
  }
  if (!component.is())
    throw Error(ErrorKind::kAutomation, "cannot open " + filename + " (a wrong password or a damaged file)");
  Reference<css::sheet::XSpreadsheetDocument> spreadsheet(component, UNO_QUERY);
  if (!spreadsheet.is()) {
    Reference<css::util::XCloseable> closeable(component, UNO_QUERY);
    if (closeable.is()) closeable->close(true);
    throw Error(ErrorKind::kAutomation, filename + " is not a spreadsheet");
  }
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
