#include "app/heartbeat.h"

namespace {

thread_local CHeartbeat* t_ownHeart = nullptr;

std::int64_t Now() noexcept {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

CHeartbeat::CHeartbeat() noexcept : m_last(Now()) {}

void CHeartbeat::BeOfThisThread() noexcept {
    t_ownHeart = this;
    Beat();
}

std::chrono::milliseconds CHeartbeat::GetSilence() const noexcept {
    return std::chrono::milliseconds(Now() - m_last.load(std::memory_order_relaxed));
}

void Beat() noexcept {
    if (t_ownHeart != nullptr) t_ownHeart->m_last.store(Now(), std::memory_order_relaxed);
}

void StopBeating() noexcept {
    t_ownHeart = nullptr;
}
