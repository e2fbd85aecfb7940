#include "root/self_protection.h"

#include <gtest/gtest.h>
#include <winternl.h>

#include <set>

#include "base/format_message.h"
#include "support/import_fake.h"

namespace crv::root {
namespace {

HANDLE Fake(int number) { return reinterpret_cast<HANDLE>(0x5A50 + number); }

// A driver that answers as told; notes what reaches the system, in order.
class SelfProtection : public testing::Test {
 protected:
  ~SelfProtection() override { EXPECT_TRUE(held_.empty()); }

  std::set<int> missing_;  // the opens that fail, counted from 1
  BOOL success_ = TRUE;
  DWORD returned_ = 4;     // bytes
  std::uint32_t answer_ = 0;
  std::string asked_;

 private:
  int opens_ = 0;
  std::set<HANDLE> held_;
  test::ImportFake<decltype(CreateFileW)> open_{
      "kernel32.dll", "CreateFileW",
      [this](auto, std::wstring name, DWORD access, DWORD share, auto security, DWORD disposition, DWORD flags, HANDLE model) -> HANDLE {
        EXPECT_EQ(GENERIC_READ, access);
        EXPECT_EQ(3u, share);
        EXPECT_EQ(nullptr, security);
        EXPECT_EQ(DWORD{OPEN_EXISTING}, disposition);
        EXPECT_EQ(0u, flags);
        EXPECT_EQ(nullptr, model);
        asked_ += ToUtf8(name.substr(4)) + ";";
        SetLastError(ERROR_BAD_UNIT);
        return missing_.contains(++opens_) ? INVALID_HANDLE_VALUE : *held_.insert(Fake(opens_)).first;
      }};
  test::ImportFake<decltype(DeviceIoControl)> request_{
      "kernel32.dll", "DeviceIoControl",
      [this](auto, HANDLE device, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size, DWORD* returned, auto overlapped) {
        EXPECT_EQ(nullptr, overlapped);
        EXPECT_TRUE(held_.contains(device));
        char text[64];
        std::snprintf(text, sizeof(text), "%x on %x", static_cast<unsigned>(code), reinterpret_cast<unsigned>(device));
        asked_ += text;
        if (in && in_size == 4) asked_ += " for " + std::to_string(*static_cast<std::uint32_t*>(in));
        EXPECT_EQ(in_size, out_size);
        EXPECT_EQ(!in, !out);
        asked_ += ";";
        if (out) *static_cast<std::uint32_t*>(out) = answer_;
        *returned = returned_;
        SetLastError(ERROR_GEN_FAILURE);
        return success_;
      }};
  test::ImportFake<decltype(CloseHandle)> close_{"kernel32.dll", "CloseHandle", [this](auto real, HANDLE handle) {
                                                   if (held_.erase(handle) == 0) return real(handle);
                                                   asked_ += "close " + std::to_string(reinterpret_cast<unsigned>(handle) % 16) + ";";
                                                   SetLastError(0xBAD);
                                                   return TRUE;
                                                 }};
  test::ImportFake<decltype(EnterCriticalSection)> lock_{"kernel32.dll", "EnterCriticalSection", [this](auto real, auto* section) {
                                                           asked_ += "lock;";
                                                           real(section);
                                                         }};
  test::ImportFake<decltype(LeaveCriticalSection)> unlock_{"kernel32.dll", "LeaveCriticalSection", [this](auto real, auto* section) {
                                                             asked_ += "unlock;";
                                                             real(section);
                                                           }};
};

TEST_F(SelfProtection, OnlyAProperAnswerOfTheDriverDecides) {
  const struct { BOOL success; DWORD returned; std::uint32_t answer, expected; } cases[] = {
      {TRUE, 4, 0, 0}, {TRUE, 4, 1, 1}, {TRUE, 4, 0xFFFFFFFF, 0xFFFFFFFF}, {TRUE, 2, 0, 1}, {TRUE, 0, 0, 1}, {TRUE, 5, 0, 1}, {FALSE, 4, 0, 1}};
  {
    const SelfProtectionClient client;
    EXPECT_EQ("lock;crvSP_Handler;CRVSP_Open;CRVSP;unlock;", asked_);
    for (const auto& c : cases) {
      asked_ = "";
      success_ = c.success;
      returned_ = c.returned;
      answer_ = c.answer;
      EXPECT_EQ(c.expected, client.IsTrustedProcess(4321)) << "row " << (&c - cases);
      EXPECT_EQ("b2d600cc on 5a52 for 4321;", asked_);
    }
    asked_ = "";
  }
  EXPECT_EQ("close 3;close 2;close 1;", asked_);
}

TEST_F(SelfProtection, WithoutTheOpenDeviceEveryProcessIsTrusted) {
  missing_ = {2};
  EXPECT_EQ(1u, SelfProtectionClient().IsTrustedProcess(4321));
  EXPECT_EQ("lock;crvSP_Handler;CRVSP_Open;CRVSP;unlock;close 3;close 1;", std::exchange(asked_, ""));
  missing_ = {4, 5, 6};
  EXPECT_EQ(1u, SelfProtectionClient().IsTrustedProcess(4321));
  EXPECT_EQ("lock;crvSP_Handler;CRVSP_Open;CRVSP;unlock;", asked_);
}

TEST_F(SelfProtection, NoticeGoesThroughADeviceOfItsOwn) {
  EXPECT_EQ(0u, SendFatalDumpNotice());
  EXPECT_EQ("CRVSP_Open;b2d601b0 on 5a51;close 1;", std::exchange(asked_, ""));
  success_ = FALSE;
  EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, SendFatalDumpNotice());
  EXPECT_EQ("CRVSP_Open;b2d601b0 on 5a52;close 2;", std::exchange(asked_, ""));
  missing_ = {3};
  EXPECT_EQ(DWORD{ERROR_BAD_UNIT}, SendFatalDumpNotice());
  EXPECT_EQ("CRVSP_Open;", asked_);
}

// A pipe under the name of a device: it tells whether somebody has it open.
class PipeDevice {
 public:
  explicit PipeDevice(const std::wstring& device)
      : pipe_(CreateNamedPipeW((L"\\\\.\\pipe\\crv tests " + device).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 16, 16, 0, nullptr)) {
    EXPECT_TRUE(pipe_);
    std::wstring name = L"\\??\\" + device, target = L"\\Device\\NamedPipe\\crv tests " + device;
    UNICODE_STRING name_text = Text(name), target_text = Text(target);
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name_text, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
    using Create = LONG WINAPI(HANDLE * link, ACCESS_MASK access, OBJECT_ATTRIBUTES * attributes, UNICODE_STRING * target);
    auto* const create = reinterpret_cast<Create*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll"), "NtCreateSymbolicLinkObject")));
    EXPECT_EQ(0, create(link_.put(), GENERIC_ALL, &attributes, &target_text));
  }

  // 0 while the pipe is open at the other end.
  DWORD State() const { return PeekNamedPipe(pipe_.get(), nullptr, 0, nullptr, nullptr, nullptr) ? 0 : GetLastError(); }

 private:
  static UNICODE_STRING Text(std::wstring& text) {
    const USHORT size = text.size() * sizeof(wchar_t);
    return {size, size, text.data()};
  }

  ScopedFile pipe_;
  ScopedKernelHandle link_;
};

TEST(SelfProtectionProbe, HoldsTheDevicesAsLongAsItIsLoaded) {
  const PipeDevice devices[] = {PipeDevice(L"crvSP_Handler"), PipeDevice(L"CRVSP_Open"), PipeDevice(L"CRVSP")};
  for (const PipeDevice& device : devices) EXPECT_NE(0u, device.State());
  ScopedModule probe(LoadLibraryW(L"self_protection_probe.dll"));
  ASSERT_TRUE(probe);
  for (const PipeDevice& device : devices) EXPECT_EQ(0u, device.State());
  using Ask = std::uint32_t(std::uint32_t process_id);
  EXPECT_EQ(1u, reinterpret_cast<Ask*>(reinterpret_cast<void*>(GetProcAddress(probe.get(), "Ask")))(GetCurrentProcessId()));
  probe.reset();
  for (const PipeDevice& device : devices) EXPECT_EQ(DWORD{ERROR_BROKEN_PIPE}, device.State());
}

}  // namespace
}  // namespace crv::root
