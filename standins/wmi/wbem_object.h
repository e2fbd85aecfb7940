// A class of the schema, or an instance of one, as WMI hands it to a program. An instance is a program's own copy: it becomes
// known to others when it is put into its namespace. An object is used by one thread at a time.
#pragma once

#include <string>

#include "wmi/control.h"
#include "wmi/schema.h"
#include "shared/com_object.h"
#include "wmi/partial_interfaces.h"

namespace crv::standins {

class WbemObject final : public ComObject<PartialObject> {
 public:
  explicit WbemObject(const WmiClass& wmi_class);                          // the class
  WbemObject(const WmiClass& wmi_class, const WmiProperties& properties);  // an instance of it

  // The object behind an interface pointer, which keeps its reference; null when another server made it.
  static WbemObject* From(IWbemClassObject* object);

  const WmiClass& wmi_class() const { return class_; }
  bool is_instance() const { return is_instance_; }
  const WmiProperties& properties() const { return properties_; }

  HRESULT __stdcall QueryInterface(REFIID iid, void** object) override;
  HRESULT __stdcall Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) override;
  HRESULT __stdcall SpawnInstance(LONG flags, IWbemClassObject** instance) override;

 private:
  const WmiClass& class_;
  const bool is_instance_;
  WmiProperties properties_;  // those that are set, under the schema's spelling
};

// Whether a text was made by SysAllocString: the length that is stored before it must be its own.
bool IsBstr(BSTR text);

}  // namespace crv::standins
