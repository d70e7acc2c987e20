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
#include <com/sun/star/io/XInputStream.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <com/sun/star/util/XModifiable.hpp>

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

// A salted hash of the document settings' ModifyPasswordInfo: its bytes
// as the OpenDocument import leaves them, or base64 text as the Open XML
// import does; empty when unreadable.
Bytes HashBytes(const Any& value) {
  Sequence<sal_Int8> bytes;
  if (value >>= bytes) return Bytes(bytes.begin(), bytes.end());
  OUString text;
  if (value >>= text) return Base64Decode(ToUtf8(text)).value_or(Bytes());
  return {};
}

// The reservation of a loaded spreadsheet document, as its import filter
// left it in the document's settings (inside a call). Either kind makes
// the office open the document read-only; it asks for the password only
// when a person switches a window to editing, which never happens here.
WriteReservation ReservationOf(const Reference<css::beans::XPropertySet>& settings) {
  WriteReservation reservation;
  if (!settings.is()) return reservation;
  // Asked for straight away, an unknown property answering with an
  // exception: asking first whether each exists would cost the office two
  // more round trips per open.
  auto value = [&](const char* name) {
    try {
      return settings->getPropertyValue(OUString::createFromAscii(name));
    } catch (const css::beans::UnknownPropertyException&) {
      return Any();
    }
  };
  if (const Any hash = value("ModifyPasswordHash"); hash.hasValue()) {
    sal_Int32 verifier = 0;
    hash >>= verifier;
    reservation.verifier = static_cast<uint16_t>(verifier);
  }
  if (const Any info = value("ModifyPasswordInfo"); info.hasValue()) {
    Sequence<css::beans::PropertyValue> salted;
    info >>= salted;
    for (const auto& p : salted) {
      if (p.Name == "algorithm-name") {
        OUString name;
        p.Value >>= name;
        reservation.algorithm = ToUtf8(name);
      } else if (p.Name == "salt") {
        reservation.salt = HashBytes(p.Value);
      } else if (p.Name == "hash") {
        reservation.hash = HashBytes(p.Value);
      } else if (p.Name == "iteration-count") {
        // Read wide: a count beyond 32 bits (or below zero) is one that
        // cannot be checked, not a small one.
        sal_Int64 count = 0;
        p.Value >>= count;
        reservation.count = count < 0 || count > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(count);
      }
    }
    // A salted reservation without an algorithm's name still reserves the
    // document; no password can be checked against it.
    if (salted.hasElements() && reservation.algorithm.empty()) reservation.algorithm = "(none named)";
  }
  return reservation;
}

// The first bytes of a part of a zip package (inside a call); empty when
// the package or the part cannot be read.
std::string PackagePart(Session& session, const std::string& url, const char* part) {
  try {
    const Reference<css::uno::XComponentContext>& context = session.context();
    const auto arguments = ToSequence<Any>({Any(ToOUString(url))});
    Reference<css::container::XNameAccess> package(
        context->getServiceManager()->createInstanceWithArgumentsAndContext("com.sun.star.packages.zip.ZipFileAccess",
                                                                            arguments, context),
        UNO_QUERY);
    Reference<css::io::XInputStream> stream;
    if (!package.is() || !package->hasByName(ToOUString(part)) || !(package->getByName(ToOUString(part)) >>= stream))
      return {};
    std::string text;
    Sequence<sal_Int8> chunk;
    while (text.size() < 65536 && stream->readBytes(chunk, 16384) > 0)
      text.append(reinterpret_cast<const char*>(chunk.getConstArray()), static_cast<size_t>(chunk.getLength()));
    stream->closeInput();
    return text;
  } catch (const css::uno::Exception&) {
    return {};
  }
}

// Whether the Open XML workbook at `url` itself recommends opening it
// read-only: readOnlyRecommended on its fileSharing element, or the
// "marked as final" property that the office writes for it.
bool OpenXmlRecommendsReadOnly(Session& session, const std::string& url) {
  const std::string book = PackagePart(session, url, "xl/workbook.xml");
  const size_t sharing = book.find("fileSharing ");
  if (sharing != std::string::npos) {
    const std::string element = book.substr(sharing, book.find('>', sharing) - sharing);
    for (const char* on : {"readOnlyRecommended=\"1\"", "readOnlyRecommended=\"true\"",
                           "readOnlyRecommended='1'", "readOnlyRecommended='true'"})
      if (element.find(on) != std::string::npos) return true;
  }
  const std::string custom = PackagePart(session, url, "docProps/custom.xml");
  const size_t final_mark = custom.find("\"_MarkAsFinal\"");
  if (final_mark == std::string::npos) return false;
  const std::string property = custom.substr(final_mark, custom.find("</", final_mark) - final_mark);
  return property.find(">1") != std::string::npos || property.find(">true") != std::string::npos;
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
  // editing, so the check is made here against what the import kept.
  Reference<css::lang::XMultiServiceFactory> factory(component, UNO_QUERY);
  Reference<css::beans::XPropertySet> settings;
  if (factory.is()) settings.set(factory->createInstance("com.sun.star.document.Settings"), UNO_QUERY);
  const WriteReservation reservation = ReservationOf(settings);
  const std::string modify_password = options.write_res_password.value_or("");
  if (reservation.reserved() && modify_password.empty()) {
    loaded.reserved = true;
  } else if (reservation.reserved()) {
    std::string why;
    switch (reservation.Check(modify_password, &why)) {
      case WriteReservation::Verdict::kAccepted:
        loaded.reservation_password = modify_password;
        break;
      case WriteReservation::Verdict::kRejected:
        refuse("cannot open " + filename + " for writing: the write reservation password is not correct");
        break;
      case WriteReservation::Verdict::kUncheckable:
        refuse("cannot open " + filename +
               " for writing: its write reservation is of a kind whose password cannot be checked here (" + why +
               ")");
        break;
    }
  }
  loaded.reservation = reservation;
  // The office opens a reserved workbook (or one whose file it cannot
  // write) read-only and then refuses every change made through its API.
  // A read-only workbook is edited in memory all the same (see ReadOnly
  // above); the office is told to allow that, and whether the file itself
  // may be written is decided here alone.
  Reference<css::frame::XStorable> storable(component, UNO_QUERY);
  if (storable.is() && storable->isReadonly()) {
    Reference<css::beans::XPropertySet> properties(component, UNO_QUERY);
    if (properties.is() && properties->getPropertySetInfo()->hasPropertyByName("IsChangeReadOnlyEnabled"))
      properties->setPropertyValue("IsChangeReadOnlyEnabled", Any(true));
  }
  std::string filter;
  if (Reference<css::frame::XModel> model{component, UNO_QUERY}; model.is()) {
    for (const auto& p : model->getArgs()) {
      OUString name;
      if (p.Name == "FilterName" && (p.Value >>= name)) filter = ToUtf8(name);
    }
  }
  if (loaded.format == 0) loaded.format = FormatOfFilter(filter.c_str());
  // The Open XML import also recommends opening read-only any workbook with
  // a salted reservation, and every save would then write that
  // recommendation into the copy (marked as final), which the file itself
  // did not ask for. The reservation is enforced here; the recommendation
  // stays only where the file made it.
  if (reservation.salted() && ReservationStoreOf(filter.c_str()) == ReservationStore::kOpenXml && settings.is()) {
    bool recommended = false;
    settings->getPropertyValue("LoadReadonly") >>= recommended;
    if (recommended && !OpenXmlRecommendsReadOnly(session, url)) {
      Reference<css::util::XModifiable> modifiable(component, UNO_QUERY);
      const bool modified = modifiable.is() && modifiable->isModified();
      settings->setPropertyValue("LoadReadonly", Any(false));
      if (modifiable.is() && !modified) modifiable->setModified(false);
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
