// COM for the calling thread, for the length of a scope.
#pragma once

namespace crv::wsc {

class ComApartment {
 public:
  // Joins the multithreaded apartment. Throws `crv::exceptions::error` with the HRESULT and "CoInitializeEx" when COM refuses,
  // for example because the thread already is in a single-threaded apartment.
  ComApartment();
  ~ComApartment();
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
};

}  // namespace crv::wsc
