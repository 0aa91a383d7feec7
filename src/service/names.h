// The service's names, as it knows them itself.
#pragma once

#include "platform/dbus/names.h"

namespace trevix::service {

inline constexpr const char* kBusName = dbus::kServiceName;

using dbus::kDetailsInterface;
using dbus::kFactoryInterface;
using dbus::kFactoryPath;
using dbus::kIndexInterface;
using dbus::kIndexPath;
using dbus::kManageInterface;
using dbus::kManagePath;
using dbus::kSessionInterface;
using dbus::kSessionPath;

}  // namespace trevix::service
