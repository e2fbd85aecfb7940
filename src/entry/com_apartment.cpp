#include "entry/com_apartment.h"

#include <objbase.h>

#include "base/exceptions.h"

namespace crv::wsc {

ComApartment::ComApartment() {
  const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (FAILED(result)) throw exceptions::error(result, "CoInitializeEx");
}

ComApartment::~ComApartment() { CoUninitialize(); }

}  // namespace crv::wsc
