#include <Commons/WrtAccess/WrtAccess.h>

#include "UserPolicy.h"

#include <Commons/Exception.h>
#include <Logger.h>
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>

#include <unistd.h>

#include <stdexcept>

namespace WrtDeviceApis {
namespace Commons {

namespace {

std::string runningApp() {
    std::optional<std::string> appId = Kv::Device::runningAppId(getpid());
    if (!appId) {
        ThrowMsg(NotFoundException, "No app is registered as running in process " << getpid());
    }
    return *appId;
}

Kv::Device::AppInfo installedApp(const std::string& appId) {
    std::optional<Kv::Device::AppInfo> app = Kv::Device::findApp(appId);
    if (!app) {
        ThrowMsg(NotFoundException, "The running app " << appId << " is not installed");
    }
    return *app;
}

}  // namespace

WrtAccess::WrtAccess() = default;

WrtAccess::~WrtAccess() = default;

WrtAccess::Session WrtAccess::readSession(int widgetId, const std::string& appId) {
    try {
        Kv::Device::AppInfo app = installedApp(appId);
        UserPolicy policy = UserPolicy::load(Kv::Device::policyFile());
        return Session{widgetId, app.appId,
                       std::set<std::string>(app.privileges.begin(), app.privileges.end()),
                       policy.blockedFor(app.appId)};
    } catch (const Exception&) {
        throw;
    } catch (const std::exception& error) {
        ThrowMsg(PlatformException, "Can not read the device: " << error.what());
    }
}

void WrtAccess::initialize(int widgetId) {
    if (widgetId < 0) {
        ThrowMsg(InvalidArgumentException, "Invalid widget id " << widgetId);
    }
    if (m_session && m_session->widgetId != widgetId) {
        ThrowMsg(PlatformWrongStateException,
                 "Access control is initialised for widget " << m_session->widgetId);
    }
    m_session = readSession(widgetId, runningApp());
    LoggerI("Access control initialised for widget "
            << widgetId << ", app " << m_session->appId << " (" << m_session->privileges.size()
            << " privileges, " << m_session->blocked.size() << " blocked)");
}

void WrtAccess::deinitialize(int widgetId) {
    if (!m_session || m_session->widgetId != widgetId) {
        ThrowMsg(PlatformWrongStateException,
                 "Access control is not initialised for widget " << widgetId);
    }
    m_session.reset();
    LoggerI("Access control deinitialised for widget " << widgetId);
}

WrtAccess::CheckAccessReturnType WrtAccess::checkAccessControl(const AceFunction& function) const {
    if (!m_session) {
        LoggerE("Access check of " << function.name << " before initialisation");
        return CHECK_ACCESS_INTERNAL_ERROR;
    }
    return decide(*m_session, function.name, function.features);
}

WrtAccess::CheckAccessReturnType WrtAccess::checkAppPrivilege(const std::string& appId,
                                                              const std::string& privilege) {
    try {
        AceFeature feature;
        feature.name = privilege;
        return decide(readSession(0, appId), "the service of " + appId, {feature});
    } catch (const Exception& error) {
        LoggerE("Access check of " << appId << " failed: " << error.GetMessage());
        return CHECK_ACCESS_INTERNAL_ERROR;
    }
}

WrtAccess::CheckAccessReturnType WrtAccess::decide(const Session& session,
                                                   const std::string& function,
                                                   const std::vector<AceFeature>& features) {
    for (const AceFeature& feature : features) {
        if (session.privileges.count(feature.name) == 0) {
            LoggerW(function << " denied: " << session.appId << " does not declare "
                             << feature.name);
            return CHECK_ACCESS_PRIVILEGE_DENIED;
        }
    }
    for (const AceFeature& feature : features) {
        if (session.blocked.count(feature.name) != 0) {
            LoggerW(function << " denied: the user blocks " << feature.name << " for "
                             << session.appId);
            return CHECK_ACCESS_PRIVACY_DENIED;
        }
    }
    return CHECK_ACCESS_GRANTED;
}

}  // namespace Commons
}  // namespace WrtDeviceApis
