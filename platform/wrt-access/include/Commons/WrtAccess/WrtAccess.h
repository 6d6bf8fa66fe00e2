// Access control of the web runtime, used as DPL::Singleton<WrtAccess>.
// The runtime initialises it when a widget starts; plug-ins then ask it
// whether the running app may call a guarded script function.
//
// The decision for a function, in this order:
//   not initialised                               CHECK_ACCESS_INTERNAL_ERROR
//   a feature whose privilege the app's config.xml
//   does not declare                              CHECK_ACCESS_PRIVILEGE_DENIED
//   a declared privilege that the user's policy
//   blocks for this app                           CHECK_ACCESS_PRIVACY_DENIED
//   otherwise                                     CHECK_ACCESS_GRANTED
//
// The running app is the one registered for this process in the device's
// table of running apps; its privileges come from its installed config.xml.
// The user's policy is the device's policy.conf, read at initialize():
//   # comment
//   block <appId> <privilege-uri>
// A line of any other form is logged as a warning and skipped. Device
// capabilities of a function are not checked.
#ifndef KV_PLATFORM_WRT_ACCESS_WRT_ACCESS_H
#define KV_PLATFORM_WRT_ACCESS_WRT_ACCESS_H

#include <Commons/FunctionDefinition.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace WrtDeviceApis {
namespace Commons {

class WrtAccess {
public:
    enum CheckAccessReturnType {
        CHECK_ACCESS_GRANTED = 0,
        CHECK_ACCESS_PRIVILEGE_DENIED = 1,
        CHECK_ACCESS_PRIVACY_DENIED = 2,
        CHECK_ACCESS_INTERNAL_ERROR = 3,
    };

    WrtAccess();
    ~WrtAccess();
    WrtAccess(const WrtAccess&) = delete;
    WrtAccess& operator=(const WrtAccess&) = delete;

    // Identifies the app that this process runs and reads its privileges
    // and the user's policy for it. Initialising again for the same widget
    // reads both again. Throws InvalidArgumentException for a negative id,
    // PlatformWrongStateException when initialised for another widget,
    // NotFoundException when no app is registered for this process or the
    // app is not installed, and PlatformException when the device or the
    // policy cannot be read. A failed initialisation leaves the object as
    // it was.
    void initialize(int widgetId);

    // Forgets the app. Throws PlatformWrongStateException when not
    // initialised for `widgetId`.
    void deinitialize(int widgetId);

    CheckAccessReturnType checkAccessControl(const AceFunction& function) const;

    // The same decision for the installed app `appId` and one privilege,
    // made now from its config.xml and the user's policy, for a service that
    // acts on behalf of apps of the device. An app that is not installed, or
    // a device that can't be read, gives CHECK_ACCESS_INTERNAL_ERROR.
    static CheckAccessReturnType checkAppPrivilege(const std::string& appId,
                                                   const std::string& privilege);

    bool isInitialized() const { return m_session.has_value(); }

private:
    struct Session {
        int widgetId;
        std::string appId;
        std::set<std::string> privileges;
        std::set<std::string> blocked;
    };

    static Session readSession(int widgetId, const std::string& appId);
    static CheckAccessReturnType decide(const Session& session, const std::string& function,
                                        const std::vector<AceFeature>& features);

    std::optional<Session> m_session;
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
