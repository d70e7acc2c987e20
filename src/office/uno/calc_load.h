// Loading workbook files into spreadsheet documents. Internal to the backend.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/document/XTypeDetection.hpp>
#include <com/sun/star/lang/XComponent.hpp>

#include "office/office.h"
#include "office/uno/session.h"
#include "office/uno/write_reservation.h"

namespace tabulon::office::uno {

// Loads files as Workbooks.Open does, and keeps what the office said about
// types and filters for the next file.
class WorkbookLoader {
 public:
  // A loaded spreadsheet document and the file format it was read as (0 when
  // no format number names its filter).
  struct Loaded {
    Reference<css::lang::XComponent> component;
    int32_t format = 0;
    // Reserved for writing and opened without its password: read-only.
    bool reserved = false;
    // The write reservation the file has (none: not reserved), and the
    // password that lifted it (empty when none was given).
    WriteReservation reservation;
    std::string reservation_password;
  };
  // Loads `filename` hidden, with the open options, into a spreadsheet
  // document (inside a call). A workbook reserved for writing opens
  // writable with its write reservation password, read-only without one,
  // and throws with a wrong one (or for a kind of reservation that cannot
  // be checked here).
  Loaded Load(Session& session, const std::string& filename, const OpenOptions& options);
  // The office quit or restarted: its services are gone.
  void ForgetOffice() { detection_.clear(); }

 private:
  // The office's type of a file and the filter it would read it with.
  struct Detected {
    std::string type;
    OUString filter;
  };
  Detected Detect(Session& session, const OUString& url);
  // Loads a file into a spreadsheet document without a window or view,
  // which spares about a quarter of a small workbook's open; empty when the
  // document alone cannot take the file.
  Reference<css::lang::XComponent> LoadWithoutView(Session& session, const OUString& url,
                                                   std::vector<css::beans::PropertyValue> args,
                                                   const std::optional<Detected>& detected);

  Reference<css::document::XTypeDetection> detection_;
  std::map<std::string, bool> spreadsheet_filters_;  // filter name: fills a spreadsheet
};

}  // namespace tabulon::office::uno
