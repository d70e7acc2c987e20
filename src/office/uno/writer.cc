#include "office/uno/writer.h"

#include <algorithm>
#include <filesystem>

#include <com/sun/star/beans/NamedValue.hpp>
#include <com/sun/star/configuration/theDefaultProvider.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/datatransfer/DataFlavor.hpp>
#include <com/sun/star/datatransfer/XTransferable.hpp>
#include <com/sun/star/datatransfer/XTransferableSupplier.hpp>
#include <com/sun/star/frame/XComponentLoader.hpp>
#include <com/sun/star/frame/XModel.hpp>
#include <com/sun/star/frame/XStorable.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>
#include <com/sun/star/sheet/XCellRangeData.hpp>
#include <com/sun/star/table/XCell.hpp>
#include <com/sun/star/table/XTableColumns.hpp>
#include <com/sun/star/table/XTableRows.hpp>
#include <com/sun/star/text/XText.hpp>
#include <com/sun/star/text/XTextTableCursor.hpp>
#include <com/sun/star/text/XTextTablesSupplier.hpp>
#include <com/sun/star/util/CloseVetoException.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <com/sun/star/util/XModifiable.hpp>
#include <com/sun/star/view/XSelectionSupplier.hpp>

#include "office/uno/clipboard.h"

namespace tabulon::office::uno {

namespace fs = std::filesystem;
using css::uno::Any;
using css::uno::UNO_QUERY;
using css::uno::UNO_QUERY_THROW;

// ---- Table ----

int32_t WriterTable::RowsCount() {
  return document_->Call("Table.Rows.Count", [&] { return static_cast<int32_t>(table_->getRows()->getCount()); });
}

int32_t WriterTable::ColumnsCount() {
  return document_->Call("Table.Columns.Count",
                         [&] { return static_cast<int32_t>(table_->getColumns()->getCount()); });
}

void WriterTable::RowDelete(int32_t row) {
  document_->Call("Table.Rows.Delete", [&] {
    auto rows = table_->getRows();
    if (row < 1 || row > rows->getCount())
      throw Error(ErrorKind::kNotFound, "no table row " + std::to_string(row));
    rows->removeByIndex(row - 1, 1);
  });
}

void WriterTable::ColumnDelete(int32_t column) {
  document_->Call("Table.Columns.Delete", [&] {
    auto columns = table_->getColumns();
    if (column < 1 || column > columns->getCount())
      throw Error(ErrorKind::kNotFound, "no table column " + std::to_string(column));
    columns->removeByIndex(column - 1, 1);
  });
}

Block WriterTable::Read() {
  // A table with merged or split cells has no rectangular data array; its
  // cells are then read by name ("A1", "B2", ...) into the grid.
  Reference<css::sheet::XCellRangeData> data(table_, UNO_QUERY);
  if (data.is()) {
    try {
      const auto array = data->getDataArray();
      Block block(array.getLength());
      for (sal_Int32 r = 0; r < array.getLength(); ++r) {
        for (sal_Int32 c = 0; c < array[r].getLength(); ++c) {
          OUString s;
          double d;
          if (array[r][c] >>= s)
            block[r].push_back(s.isEmpty() ? Cell() : Cell(ToUtf8(s)));
          else if (array[r][c] >>= d)
            block[r].push_back(d);
          else
            block[r].push_back(Cell());
        }
      }
      return block;
    } catch (const css::uno::RuntimeException&) {
    }
  }
  const int32_t rows = table_->getRows()->getCount();
  const int32_t columns = table_->getColumns()->getCount();
  Block block(rows, std::vector<Cell>(columns));
  for (const auto& name : table_->getCellNames()) {
    const std::string n = ToUtf8(name);
    size_t i = 0;
    int32_t column = 0;
    while (i < n.size() && std::isalpha(static_cast<unsigned char>(n[i]))) {
      column = column * 26 + (std::toupper(static_cast<unsigned char>(n[i])) - 'A' + 1);
      ++i;
    }
    const int32_t row = std::atoi(n.c_str() + i);
    if (row < 1 || column < 1 || row > rows || column > columns) continue;
    Reference<css::text::XText> text(table_->getCellByName(name), UNO_QUERY);
    if (text.is()) {
      const std::string s = ToUtf8(text->getString());
      if (!s.empty()) block[row - 1][column - 1] = s;
    }
  }
  return block;
}

Block WriterTable::Cells() {
  return document_->Call("Table.Cells", [&] { return Read(); });
}

// The table as the word processor hands it to other programs: every cell
// of it selected in the document's view, then the view's transferable asked
// for HTML, which carries merged cells and the cells' look. (A transferable
// put on the system clipboard of one headless office is not seen by
// another, so the content is taken here and carried by the backend.)
std::string WriterTable::Html() {
  Reference<css::frame::XModel> model(document_->component(), UNO_QUERY_THROW);
  const auto controller = model->getCurrentController();
  Reference<css::view::XSelectionSupplier> selection(controller, UNO_QUERY);
  Reference<css::datatransfer::XTransferableSupplier> supplier(controller, UNO_QUERY);
  if (!selection.is() || !supplier.is()) return {};
  // Selecting the table object itself selects nothing to copy; a table
  // cursor from the first to the last cell does.
  const auto names = table_->getCellNames();
  if (!names.hasElements()) return {};
  auto cursor = table_->createCursorByCellName(names[0]);
  cursor->gotoStart(false);
  cursor->gotoEnd(true);
  if (!selection->select(Any(cursor))) return {};
  const auto transferable = supplier->getTransferable();
  css::datatransfer::DataFlavor html;
  html.MimeType = "text/html";
  html.DataType = cppu::UnoType<Sequence<sal_Int8>>::get();
  if (!transferable.is() || !transferable->isDataFlavorSupported(html)) return {};
  Sequence<sal_Int8> bytes;
  if (!(transferable->getTransferData(html) >>= bytes)) return {};
  return std::string(reinterpret_cast<const char*>(bytes.getConstArray()), bytes.getLength());
}

void WriterTable::RangeCopy() {
  document_->Call("Table.Range.Copy", [&] {
    ClipboardContent content;
    content.has_content = true;
    content.from_table = true;
    // The text of the cells, as typed: what a paste of values falls back
    // to when the view gives no HTML.
    Block block = Read();
    for (auto& row : block)
      for (auto& cell : row)
        if (const auto* d = std::get_if<double>(&cell)) {
          char buf[64];
          snprintf(buf, sizeof buf, "%.15g", *d);
          cell = std::string(buf);
        }
    size_t width = 0;
    for (const auto& row : block) width = std::max(width, row.size());
    for (auto& row : block) row.resize(width);
    content.values = std::move(block);
    content.html = Html();
    Clipboard::Get().Set(std::move(content));
  });
}

// ---- Document ----

int32_t WriterDocument::TablesCount() {
  return Call("Document.Tables.Count", [&] {
    Reference<css::text::XTextTablesSupplier> supplier(component_, UNO_QUERY_THROW);
    Reference<css::container::XIndexAccess> tables(supplier->getTextTables(), UNO_QUERY_THROW);
    return static_cast<int32_t>(tables->getCount());
  });
}

std::unique_ptr<Table> WriterDocument::Tables(int32_t index) {
  return Call("Document.Tables", [&] {
    Reference<css::text::XTextTablesSupplier> supplier(component_, UNO_QUERY_THROW);
    Reference<css::container::XIndexAccess> tables(supplier->getTextTables(), UNO_QUERY_THROW);
    if (index < 1 || index > tables->getCount())
      throw Error(ErrorKind::kNotFound, "no table number " + std::to_string(index));
    return std::make_unique<WriterTable>(
        this, Reference<css::text::XTextTable>(tables->getByIndex(index - 1), UNO_QUERY_THROW));
  });
}

void WriterDocument::CloseDocument() {
  if (closed_) return;
  closed_ = true;
  try {
    Reference<css::util::XCloseable> closeable(component_, UNO_QUERY);
    if (closeable.is())
      closeable->close(true);
    else
      component_->dispose();
  } catch (const css::util::CloseVetoException&) {
    component_->dispose();
  }
}

void WriterDocument::Close(std::optional<bool> save_changes) {
  Call("Document.Close", [&] {
    if (save_changes.value_or(false)) {
      Reference<css::util::XModifiable> modifiable(component_, UNO_QUERY);
      if (modifiable.is() && modifiable->isModified()) {
        Reference<css::frame::XStorable> storable(component_, UNO_QUERY_THROW);
        if (storable->isReadonly())
          throw Error(ErrorKind::kAutomation, "the document is read-only and cannot be saved");
        storable->store();
      }
    }
    CloseDocument();
  });
  app_->Forget(this);
}

// ---- Application ----

WriterApplication::WriterApplication(const UnoOptions& options) : session_(Session::Start(options)) {}

WriterApplication::~WriterApplication() { session_->Kill(); }

std::string WriterApplication::Version() {
  return Call("Application.Version", [&] { return session_->ProductSetting("ooSetupVersion"); });
}

Document& WriterApplication::Open(const std::string& filename, const DocumentOpenOptions& options) {
  return Call("Documents.Open", [&]() -> Document& {
    std::error_code ec;
    if (!fs::is_regular_file(filename, ec))
      throw Error(ErrorKind::kAutomation, "file not found: " + filename);
    std::vector<css::beans::PropertyValue> args{Prop("Hidden", Any(true))};
    if (options.read_only) args.push_back(Prop("ReadOnly", Any(*options.read_only)));
    if (options.password_document && !options.password_document->empty())
      args.push_back(Prop("Password", Any(ToOUString(*options.password_document))));
    Reference<css::frame::XComponentLoader> loader(session_->desktop(), UNO_QUERY_THROW);
    Reference<css::lang::XComponent> component = loader->loadComponentFromURL(
        ToOUString(FileUrl(filename)), "_blank", 0,
        Sequence<css::beans::PropertyValue>(args.data(), args.size()));
    if (!component.is())
      throw Error(ErrorKind::kAutomation,
                  "cannot open " + filename + " (a wrong password or a damaged file)");
    Reference<css::text::XTextTablesSupplier> text(component, UNO_QUERY);
    if (!text.is()) {
      Reference<css::util::XCloseable> closeable(component, UNO_QUERY);
      if (closeable.is()) closeable->close(true);
      throw Error(ErrorKind::kAutomation, filename + " is not a text document");
    }
    all_.push_back(std::make_unique<WriterDocument>(this, component));
    open_.push_back(all_.back().get());
    return *all_.back();
  });
}

Document& WriterApplication::ActiveDocument() {
  return Call("Application.ActiveDocument", [&]() -> Document& {
    if (open_.empty()) throw Error(ErrorKind::kAutomation, "no document is open");
    return *open_.back();
  });
}

void WriterApplication::Forget(WriterDocument* document) {
  open_.erase(std::remove(open_.begin(), open_.end(), document), open_.end());
}

void WriterApplication::Quit() {
  open_.clear();
  session_->Quit();
}

void WriterApplication::SaveCopyAs(Document& document, const std::string& filename) {
  auto& writer_document = dynamic_cast<WriterDocument&>(document);
  writer_document.Call("Document.SaveCopyAs", [&] {
    static const std::pair<const char*, const char*> kFilters[] = {
        {".doc", "MS Word 97"}, {".docx", "MS Word 2007 XML"}, {".odt", "writer8"}, {".rtf", "Rich Text Format"}};
    const std::string extension = fs::path(filename).extension().string();
    const char* filter = nullptr;
    for (const auto& [ext, name] : kFilters)
      if (extension == ext) filter = name;
    if (filter == nullptr) throw Error(ErrorKind::kAutomation, "no word-processor format for " + filename);
    Reference<css::frame::XStorable> storable(writer_document.component(), UNO_QUERY_THROW);
    storable->storeToURL(ToOUString(FileUrl(fs::absolute(filename).string())),
                         ToSequence<css::beans::PropertyValue>({Prop("FilterName", Any(OUString::createFromAscii(filter))),
                                                                Prop("Overwrite", Any(true))}));
  });
}

}  // namespace tabulon::office::uno
