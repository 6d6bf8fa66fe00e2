// The detach in the link key. An app's plug-in forgets its agents when the
// key "memory/private/kvp/conn_status" says the link is down, and then drops
// the failures of its pending requests that arrive afterwards: they name
// agents it no longer knows. The key is read through a descriptor of its own,
// so nothing orders it after the app's session. So the key says "down" only
// once every app has been told of everything the detach ended and of the
// detach itself: each app's library confirms the detach (detach_seen) after
// its app has been told. An app that does not confirm in time, or never
// said it would, is not waited for longer than kDetachNoticeLimit.
#include "Service.h"

#include <Logger.h>

namespace Kv {
namespace Accessory {

void Service::writeDetachOnceHeard() {
    m_detachUnheard.clear();
    for (const auto& [id, session] : m_sessions) {
        if (session.acknowledgesDetach) {
            m_detachUnheard.insert(id);
        }
    }
    m_detachNoticePending = true;
    if (m_detachUnheard.empty()) {
        finishDetachNotice();
        return;
    }
    m_detachNoticeTimer.expires_after(kDetachNoticeLimit);
    m_detachNoticeTimer.async_wait([this](const std::error_code& error) {
        if (!error && m_detachNoticePending) {
            stopWaitingForDetachConfirms();
        }
    });
}

void Service::stopWaitingForDetachConfirms() {
    for (SessionId id : m_detachUnheard) {
        const auto session = m_sessions.find(id);
        LoggerW("the app " << (session != m_sessions.end() ? session->second.appId : "?")
                           << " did not confirm the detach within " << kDetachNoticeLimit.count()
                           << " ms");
    }
    finishDetachNotice();
}

void Service::detachHeard(SessionId id) {
    if (m_detachUnheard.erase(id) > 0 && m_detachUnheard.empty() && m_detachNoticePending) {
        finishDetachNotice();
    }
}

void Service::finishDetachNotice() {
    if (!m_detachNoticePending) {
        return;
    }
    m_detachNoticePending = false;
    m_detachUnheard.clear();
    m_detachNoticeTimer.cancel();
    writeConnStatus(0);
}

}  // namespace Accessory
}  // namespace Kv
