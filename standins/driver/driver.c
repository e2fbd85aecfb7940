// corvid_selfprotection.sys: the suite's self-protection driver as far as the product talks to it. Three devices; the one called
// CRVSP_Open answers the trusted-process query and takes the fatal-dump notice. What to answer lies in the registry.
#include <ntddk.h>

#include "driver/protocol.h"

// Device type 0xB2D6, METHOD_BUFFERED, FILE_ANY_ACCESS.
#define IS_TRUSTED_PROCESS 0xB2D600CC
#define FATAL_DUMP_NOTICE 0xB2D601B0

static const wchar_t kKey[] = L"\\Registry\\Machine\\" CORVID_DRIVER_KEY;

static const struct Name {
  const wchar_t* device;
  const wchar_t* link;
} kNames[] = {{L"\\Device\\crvSP_Handler", L"\\DosDevices\\crvSP_Handler"},
              {L"\\Device\\CRVSP_Open", L"\\DosDevices\\CRVSP_Open"},
              {L"\\Device\\CRVSP", L"\\DosDevices\\CRVSP"}};
enum { kOpenDevice = 1, kDevices = sizeof(kNames) / sizeof(*kNames) };

static PDEVICE_OBJECT devices[kDevices];

static HANDLE OpenKey(ACCESS_MASK access) {
  UNICODE_STRING path;
  RtlInitUnicodeString(&path, kKey);
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &path, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, NULL, NULL);
  HANDLE key = NULL;
  return NT_SUCCESS(ZwOpenKey(&key, access, &attributes)) ? key : NULL;
}

static ULONG ReadNumber(const wchar_t* value, ULONG otherwise) {
  const HANDLE key = OpenKey(KEY_QUERY_VALUE);
  if (!key) return otherwise;
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, value);
  union {
    KEY_VALUE_PARTIAL_INFORMATION information;
    UCHAR bytes[sizeof(KEY_VALUE_PARTIAL_INFORMATION) + sizeof(ULONG)];
  } buffer;
  const KEY_VALUE_PARTIAL_INFORMATION* const information = &buffer.information;
  ULONG size = 0;
  const NTSTATUS status = ZwQueryValueKey(key, &name, KeyValuePartialInformation, &buffer, sizeof(buffer), &size);
  ZwClose(key);
  if (!NT_SUCCESS(status) || information->Type != REG_DWORD || information->DataLength != sizeof(ULONG)) return otherwise;
  return *(const ULONG*)information->Data;
}

// The key is made by whoever installs the driver; without it nothing is noted.
static void WriteNumber(const wchar_t* value, ULONG number) {
  const HANDLE key = OpenKey(KEY_SET_VALUE);
  if (!key) return;
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, value);
  ZwSetValueKey(key, &name, 0, REG_DWORD, &number, sizeof(number));
  ZwClose(key);
}

static void Count(const wchar_t* value) { WriteNumber(value, ReadNumber(value, 0) + 1); }

static NTSTATUS AnswerTrustedProcess(void* buffer, const IO_STACK_LOCATION* request, ULONG_PTR* returned) {
  if (request->Parameters.DeviceIoControl.InputBufferLength != sizeof(ULONG)) return STATUS_INVALID_PARAMETER;
  if (request->Parameters.DeviceIoControl.OutputBufferLength < sizeof(ULONG)) return STATUS_BUFFER_TOO_SMALL;
  ULONG* const number = buffer;  // in and out share the buffer
  Count(CORVID_DRIVER_QUERIES);
  WriteNumber(CORVID_DRIVER_LAST_PROCESS, *number);
  *number = ReadNumber(CORVID_DRIVER_ANSWER, 1);
  *returned = ReadNumber(CORVID_DRIVER_SHORT, 0) ? sizeof(USHORT) : sizeof(ULONG);
  return STATUS_SUCCESS;
}

static NTSTATUS Control(PDEVICE_OBJECT device, const IO_STACK_LOCATION* request, void* buffer, ULONG_PTR* returned) {
  if (device != devices[kOpenDevice]) return STATUS_INVALID_DEVICE_REQUEST;
  NTSTATUS status = STATUS_INVALID_DEVICE_REQUEST;
  switch (request->Parameters.DeviceIoControl.IoControlCode) {
    case IS_TRUSTED_PROCESS: status = AnswerTrustedProcess(buffer, request, returned); break;
    case FATAL_DUMP_NOTICE:
      Count(CORVID_DRIVER_DUMPS);
      status = STATUS_SUCCESS;
      break;
  }
  const ULONG scripted = ReadNumber(CORVID_DRIVER_STATUS, 0);
  if (!NT_SUCCESS(status) || scripted == 0) return status;
  *returned = 0;
  return (NTSTATUS)scripted;
}

static NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG_PTR returned) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = returned;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static NTSTATUS NTAPI DispatchOpenAndClose(PDEVICE_OBJECT device, PIRP irp) {
  (void)device;
  return Complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS NTAPI DispatchControl(PDEVICE_OBJECT device, PIRP irp) {
  ULONG_PTR returned = 0;
  const NTSTATUS status = Control(device, IoGetCurrentIrpStackLocation(irp), irp->AssociatedIrp.SystemBuffer, &returned);
  return Complete(irp, status, returned);
}

static void DeleteDevices() {
  for (unsigned i = 0; i < kDevices; ++i) {
    if (!devices[i]) continue;
    UNICODE_STRING link;
    RtlInitUnicodeString(&link, kNames[i].link);
    IoDeleteSymbolicLink(&link);
    IoDeleteDevice(devices[i]);
    devices[i] = NULL;
  }
}

static void NTAPI Unload(PDRIVER_OBJECT driver) {
  (void)driver;
  DeleteDevices();
}

static NTSTATUS CreateDevice(PDRIVER_OBJECT driver, const struct Name* names, PDEVICE_OBJECT* device) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, names->device);
  const NTSTATUS status = IoCreateDevice(driver, 0, &name, 0xB2D6, 0, FALSE, device);
  if (!NT_SUCCESS(status)) return status;
  UNICODE_STRING link;
  RtlInitUnicodeString(&link, names->link);
  return IoCreateSymbolicLink(&link, &name);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING key) {
  (void)key;
  driver->DriverUnload = &Unload;
  driver->MajorFunction[IRP_MJ_CREATE] = &DispatchOpenAndClose;
  driver->MajorFunction[IRP_MJ_CLOSE] = &DispatchOpenAndClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = &DispatchControl;
  for (unsigned i = 0; i < kDevices; ++i) {
    const NTSTATUS status = CreateDevice(driver, &kNames[i], &devices[i]);
    if (NT_SUCCESS(status)) {
      devices[i]->Flags &= ~DO_DEVICE_INITIALIZING;
      continue;
    }
    DeleteDevices();
    return status;
  }
  return STATUS_SUCCESS;
}
