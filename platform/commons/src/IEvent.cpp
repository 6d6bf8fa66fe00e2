#include <Commons/IEvent.h>

namespace WrtDeviceApis {
namespace Commons {

IEventController::HandlingType IEventController::getHandlingType() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_handlingType;
}

void IEventController::setHandlingType(HandlingType type) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_handlingType = type;
}

bool IEventController::isSynchronous() const {
    const HandlingType type = getHandlingType();
    return type == HANDLING_SYNCHRONOUS || type == HANDLING_SYNCHRONOUS_MANUAL_ANSWER;
}

bool IEventController::isManualAnswer() const {
    const HandlingType type = getHandlingType();
    return type == HANDLING_SYNCHRONOUS_MANUAL_ANSWER ||
           type == HANDLING_ASYNCHRONOUS_MANUAL_ANSWER;
}

IEventController::State IEventController::getState() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state;
}

void IEventController::setState(State state) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state = state;
}

ExceptionCodes::Enumeration IEventController::getExceptionCode() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_exceptionCode;
}

void IEventController::setExceptionCode(ExceptionCodes::Enumeration code) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_exceptionCode = code;
}

DPL::SharedPtr<IEventPrivateData> IEventController::getPrivateData() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_privateData;
}

void IEventController::setPrivateData(const DPL::SharedPtr<IEventPrivateData>& data) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_privateData = data;
}

bool IEventController::cancelRequest() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == STATE_ANSWER_RECEIVED) {
        return false;
    }
    m_cancelled = true;
    return true;
}

bool IEventController::checkCancelled() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_cancelled;
}

}  // namespace Commons
}  // namespace WrtDeviceApis
