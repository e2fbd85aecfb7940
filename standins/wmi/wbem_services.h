// One namespace, as WMI hands it to a program that connected to it: its classes can be asked for, instances put and deleted.
// Every instance lies where all processes see it. Any thread.
#pragma once

#include "shared/com_object.h"
#include "wmi/partial_interfaces.h"

namespace crv::standins {

class WbemServices final : public ComObject<PartialServices> {
 public:
  explicit WbemServices(const wchar_t* name_space);  // one that FindNamespace gave

  HRESULT __stdcall GetObject(const BSTR path, LONG flags, IWbemContext* context, IWbemClassObject** object,
                              IWbemCallResult** result) override;
  HRESULT __stdcall PutInstance(IWbemClassObject* instance, LONG flags, IWbemContext* context, IWbemCallResult** result) override;
  HRESULT __stdcall DeleteInstance(const BSTR path, LONG flags, IWbemContext* context, IWbemCallResult** result) override;

 private:
  const wchar_t* const name_space_;
};

}  // namespace crv::standins
