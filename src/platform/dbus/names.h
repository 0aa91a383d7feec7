// The names under which the service is found on the bus, for those who serve and those who call.
#pragma once

namespace trevix::dbus {

// Of the broker. Each session has a name of its own below it, for the policy of the system bus.
inline constexpr const char* kServiceName = "com.quellmar.TrevixCI1";

inline constexpr const char* kFactoryPath = "/com/quellmar/TrevixCI1";
inline constexpr const char* kSessionPath = "/com/quellmar/TrevixCI1/Session";
inline constexpr const char* kManagePath = "/com/quellmar/TrevixCI1/Manage/";  // and a number
inline constexpr const char* kIndexPath = "/com/quellmar/TrevixCI1/Index/";    // likewise

inline constexpr const char* kFactoryInterface = "com.quellmar.TrevixCI1.Factory";
inline constexpr const char* kSessionInterface = "com.quellmar.TrevixCI1.Session";
inline constexpr const char* kDetailsInterface = "com.quellmar.TrevixCI1.Details";
inline constexpr const char* kManageInterface = "com.quellmar.TrevixCI1.Manage";
inline constexpr const char* kIndexInterface = "com.quellmar.TrevixCI1.Index";

}  // namespace trevix::dbus
