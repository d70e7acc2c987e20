#include "office/uno/calc_unborn.h"

#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/container/XNamed.hpp>
#include <com/sun/star/drawing/XDrawPageSupplier.hpp>
#include <com/sun/star/frame/XLoadable.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/util/XModifiable.hpp>

#include "office/uno/calc_application.h"
#include "office/uno/calc_workbook.h"

namespace tabulon::office::uno {

namespace {

// A new office document as Workbooks.Add gives it: one sheet, "Sheet1".
// Made as a bare document, without the window and view that the desktop's
// loader would give it (most of the cost of a new workbook; a view is made
// when one is needed, as for opened workbooks).
Reference<css::lang::XComponent> NewDocument(Session& session) {
  Reference<css::lang::XComponent> component(session.Create("com.sun.star.sheet.SpreadsheetDocument"),
                                             UNO_QUERY_THROW);
  Reference<css::frame::XLoadable>(component, UNO_QUERY_THROW)->initNew();
  Reference<css::sheet::XSpreadsheetDocument> document(component, UNO_QUERY_THROW);
  auto sheets = document->getSheets();
  Reference<css::container::XIndexAccess> index(sheets, UNO_QUERY_THROW);
  // The view would also make the document's drawing layer, which holds the
  // text of comments: without it a comment added later keeps no text.
  Reference<css::drawing::XDrawPageSupplier>(index->getByIndex(0), UNO_QUERY_THROW)->getDrawPage();
  // One sheet named Sheet1, as Excel set to one sheet per new workbook.
  while (index->getCount() > 1) {
    Reference<css::container::XNamed> last(index->getByIndex(index->getCount() - 1), UNO_QUERY_THROW);
    sheets->removeByName(last->getName());
  }
  Reference<css::container::XNamed> first(index->getByIndex(0), UNO_QUERY_THROW);
  if (first->getName() != "Sheet1") first->setName("Sheet1");
  Reference<css::util::XModifiable>(component, UNO_QUERY_THROW)->setModified(false);
  return component;
}

}  // namespace

bool UnbornState::OpenUnborn() const { return unborn_ && !book_->closed(); }

bool UnbornState::CanTakeCopy() const { return OpenUnborn() && book_->app()->waiting() == nullptr; }

void UnbornState::TakeCopy(PendingCopy copy) {
  copy_ = std::move(copy);
  saved_ = false;
  book_->app()->SetWaiting(this);
}

void UnbornState::Bear() {
  if (!unborn_) return;
  CalcApplication* app = book_->app();
  // Taken off first: a failure here must not leave every later call trying
  // again.
  if (app->waiting() == this) app->SetWaiting(nullptr);
  const std::optional<PendingCopy> copy = std::move(copy_);
  copy_.reset();
  const SheetRef active = book_->Attach(NewDocument(app->session()));
  unborn_ = false;
  first_sheet_ = active;
  book_->set_plain(true);
  book_->set_made_without_view(true);
  if (copy) {
    if (copy->source->closed() || copy->source->unborn_state().unborn())
      throw Error(ErrorKind::kAutomation, "the copied workbook is gone");
    book_->WriteTypedValues(first_sheet_, copy->from, copy->source->ReadValues(copy->sheet, copy->from),
                            copy->source->ReadKinds(copy->sheet, copy->from));
  }
  Reference<css::util::XModifiable>(book_->component(), UNO_QUERY_THROW)->setModified(!saved_);
}

SheetRef UnbornState::FirstSheet() {
  Bear();
  return first_sheet_.is() ? first_sheet_ : book_->ActiveSheetRef();
}

void UnbornState::Abandon() {
  CalcApplication* app = book_->app();
  if (app->waiting() == this) app->SetWaiting(nullptr);
  copy_.reset();
}

}  // namespace tabulon::office::uno
