#include "office/uno/write_reservation.h"

#include <com/sun/star/beans/PropertyValue.hpp>
#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/beans/XPropertySetInfo.hpp>
#include <com/sun/star/lang/XMultiServiceFactory.hpp>

#include "office/uno/calc_internal.h"

namespace tabulon::office::uno {

uint16_t ExcelModifyPasswordHash(const std::string& password) {
  uint16_t hash = 0;
  for (size_t i = password.size(); i-- > 0;) {
    hash = static_cast<uint16_t>(((hash >> 14) & 0x01) | ((hash << 1) & 0x7FFF));
    hash ^= static_cast<unsigned char>(password[i]);
  }
  hash = static_cast<uint16_t>(((hash >> 14) & 0x01) | ((hash << 1) & 0x7FFF));
  hash ^= static_cast<uint16_t>(0x8000 | ('N' << 8) | 'K');
  hash ^= static_cast<uint16_t>(password.size());
  return hash;
}

WriteReservation ReservationOf(const Reference<css::lang::XComponent>& document) {
  // The import filters record a reservation in the document's settings: the
  // binary formats' verifier as ModifyPasswordHash, the salted kinds as
  // ModifyPasswordInfo. Either makes the office open the document
  // read-only; it asks for the password only when a person switches a
  // window to editing, which never happens here.
  WriteReservation reservation;
  Reference<css::lang::XMultiServiceFactory> factory(document, UNO_QUERY);
  if (!factory.is()) return reservation;
  Reference<css::beans::XPropertySet> settings(factory->createInstance("com.sun.star.document.Settings"),
                                               UNO_QUERY);
  if (!settings.is()) return reservation;
  const auto info = settings->getPropertySetInfo();
  if (info->hasPropertyByName("ModifyPasswordHash")) {
    sal_uInt32 verifier = 0;
    settings->getPropertyValue("ModifyPasswordHash") >>= verifier;
    reservation.verifier = verifier;
  }
  if (info->hasPropertyByName("ModifyPasswordInfo")) {
    Sequence<css::beans::PropertyValue> salted;
    settings->getPropertyValue("ModifyPasswordInfo") >>= salted;
    reservation.other_kind = salted.hasElements();
  }
  return reservation;
}

}  // namespace tabulon::office::uno
