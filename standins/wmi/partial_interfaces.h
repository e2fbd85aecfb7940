// The methods of the WMI interfaces that this server does not have. The order of the methods is that of the system's header.
#pragma once

#include <windows.h>
#include <wbemcli.h>

namespace crv::standins {

class PartialServices : public IWbemServices {
 public:
  HRESULT __stdcall OpenNamespace(const BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT __stdcall CancelAsyncCall(IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall QueryObjectSink(LONG, IWbemObjectSink**) override { return E_NOTIMPL; }
  HRESULT __stdcall GetObjectAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall PutClass(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override { return E_NOTIMPL; }
  HRESULT __stdcall PutClassAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall DeleteClass(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override { return E_NOTIMPL; }
  HRESULT __stdcall DeleteClassAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall CreateClassEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall CreateClassEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall PutInstanceAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall DeleteInstanceAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall CreateInstanceEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall CreateInstanceEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall ExecQuery(const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall ExecQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return E_NOTIMPL; }
  HRESULT __stdcall ExecNotificationQuery(const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
    return E_NOTIMPL;
  }
  HRESULT __stdcall ExecNotificationQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
  HRESULT __stdcall ExecMethod(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*, IWbemClassObject**,
                               IWbemCallResult**) override {
    return E_NOTIMPL;
  }
  HRESULT __stdcall ExecMethodAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*, IWbemObjectSink*) override {
    return E_NOTIMPL;
  }
};

class PartialObject : public IWbemClassObject {
 public:
  HRESULT __stdcall Get(LPCWSTR, LONG, VARIANT*, CIMTYPE*, LONG*) override { return E_NOTIMPL; }
  HRESULT __stdcall GetQualifierSet(IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT __stdcall Delete(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT __stdcall GetNames(LPCWSTR, LONG, VARIANT*, SAFEARRAY**) override { return E_NOTIMPL; }
  HRESULT __stdcall BeginEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT __stdcall Next(LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*) override { return E_NOTIMPL; }
  HRESULT __stdcall EndEnumeration() override { return E_NOTIMPL; }
  HRESULT __stdcall GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT __stdcall Clone(IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall GetObjectText(LONG, BSTR*) override { return E_NOTIMPL; }
  HRESULT __stdcall SpawnDerivedClass(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall CompareTo(LONG, IWbemClassObject*) override { return E_NOTIMPL; }
  HRESULT __stdcall GetPropertyOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }
  HRESULT __stdcall InheritsFrom(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT __stdcall GetMethod(LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall PutMethod(LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*) override { return E_NOTIMPL; }
  HRESULT __stdcall DeleteMethod(LPCWSTR) override { return E_NOTIMPL; }
  HRESULT __stdcall BeginMethodEnumeration(LONG) override { return E_NOTIMPL; }
  HRESULT __stdcall NextMethod(LONG, BSTR*, IWbemClassObject**, IWbemClassObject**) override { return E_NOTIMPL; }
  HRESULT __stdcall EndMethodEnumeration() override { return E_NOTIMPL; }
  HRESULT __stdcall GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
  HRESULT __stdcall GetMethodOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }
};

}  // namespace crv::standins
