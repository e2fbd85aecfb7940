// What modules and other exported objects are built on: each counts itself from its construction to its destruction.
#pragma once

#include "mi/exportable.h"
#include "mi/module_counts.h"

namespace crv::mi {

inline constexpr std::uint32_t kInterfaceVersion = 1;

class ModuleBase : public virtual IModule {
 public:
  ModuleBase() noexcept { AddModule(); }
  ~ModuleBase() override { RemoveModule(); }
  ModuleBase(const ModuleBase&) = delete;
  ModuleBase& operator=(const ModuleBase&) = delete;

  void LockModule() noexcept override { AddModule(); }
  void UnlockModule() noexcept override { RemoveModule(); }
};

// A module behind the interface `Interface`.
template <typename Interface>
class Module : public virtual Interface, public virtual ModuleBase {};

class ExportedFromModule : public virtual IExportable {
 public:
  ExportedFromModule() noexcept { AddExportedObject(); }
  ~ExportedFromModule() override { RemoveExportedObject(); }
  ExportedFromModule(const ExportedFromModule&) = delete;
  ExportedFromModule& operator=(const ExportedFromModule&) = delete;

  std::uint32_t InterfaceVersion() const noexcept override { return kInterfaceVersion; }
  void LockModule() noexcept override { AddExportedObject(); }
  void UnlockModule() noexcept override { RemoveExportedObject(); }
};

// An exported object behind the interface `Interface`.
template <typename Interface>
class Exportable : public virtual Interface, public virtual ExportedFromModule {};

}  // namespace crv::mi
