// IUnknown for the objects of a library: counts references, and the objects that are alive in this process. A new object has
// one reference, its maker's. Any thread.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace crv::standins {

inline std::atomic<long> live_objects{0};

// `own_iid` is the identifier of Interface.
template <typename Interface>
class ComObject : public Interface {
 public:
  explicit ComObject(const IID& own_iid) : own_iid_(own_iid) { ++live_objects; }
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  HRESULT __stdcall QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (iid != own_iid_ && iid != IID_IUnknown) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<Interface*>(this);
    return S_OK;
  }
  ULONG __stdcall AddRef() final { return static_cast<ULONG>(++references_); }
  ULONG __stdcall Release() final {
    const long left = --references_;
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

 protected:
  virtual ~ComObject() { --live_objects; }

 private:
  const IID& own_iid_;
  std::atomic<long> references_{1};
};

}  // namespace crv::standins
