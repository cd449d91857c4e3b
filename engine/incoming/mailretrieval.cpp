#include "engine/incoming/mailretrieval.h"

#include <exception>
#include <string_view>
#include <utility>

#include "app/heartbeat.h"
#include "engine/incoming/fetchedheader.h"
#include "engine/incoming/fetchedmessage.h"
#include "net/pop3session.h"

namespace {

// False when the session is not to be used any further.
bool RetrieveOne(Net::CPop3Session& session, std::uint32_t number, std::uint64_t limit, CRetrieved& retrieved,
                 std::condition_variable& progress) {
    CFetchedHeader header;
    CContentKey content;
    const auto take = [&](std::string_view block) {
        progress.notify_one();
        retrieved.octets += block.size();
        retrieved.isTooLong = retrieved.octets > limit;
        if (retrieved.isTooLong) return false;
        content.Add(block);
        header.Add(block, retrieved.text);
        return true;
    };
    retrieved.isWhole = session.Retrieve(number, UINT64_MAX, take);
    if (retrieved.isWhole) {
        header.Finish(retrieved.text);
        retrieved.content = content.Finish();
        return true;
    }
    retrieved.failure = session.GetFailure();
    return retrieved.failure.kind == Net::FailureKind::Reply && session.IsOpen();
}

}  // namespace

CMailRetrieval::~CMailRetrieval() {
    Stop();
    Wait({});
}

void CMailRetrieval::Start(Net::CPop3Session& session, std::vector<std::uint32_t> numbers, std::uint64_t limit) {
    Take();
    m_isStopped = false;
    m_isDone = false;
    m_thread = std::thread([this, &session, limit, wanted = std::move(numbers)] {
        Run(session, wanted, limit);
        const std::lock_guard guard(m_guard);
        m_isDone = true;
        m_progress.notify_one();
    });
}

// As long as something comes the caller gets on, however slowly.
void CMailRetrieval::Wait(const std::function<bool()>& stop) {
    if (!m_thread.joinable()) return;
    {
        std::unique_lock lock(m_guard);
        for (; !m_isDone; Beat()) {
            m_progress.wait(lock);
            if (stop && stop()) Stop();
        }
    }
    m_thread.join();
}

std::vector<CRetrieved> CMailRetrieval::Take(const std::function<bool()>& stop) {
    Wait(stop);
    return std::exchange(m_retrieved, {});
}

void CMailRetrieval::Run(Net::CPop3Session& session, const std::vector<std::uint32_t>& numbers,
                         std::uint64_t limit) noexcept {
    std::uint64_t octets = 0;
    try {
        for (const std::uint32_t number : numbers) {
            if (m_isStopped || octets > LargestTogether) return;
            CRetrieved& retrieved = m_retrieved.emplace_back();
            if (!RetrieveOne(session, number, limit, retrieved, m_progress)) return;
            octets += retrieved.octets;
        }
    } catch (const std::exception& exception) {  // no memory
        session.Cancel();
        if (!m_retrieved.empty()) {
            m_retrieved.back().isWhole = false;
            m_retrieved.back().failure.kind = Net::FailureKind::Local;
            m_retrieved.back().failure.text = exception.what();
        }
    }
}
