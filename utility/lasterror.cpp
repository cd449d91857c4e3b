#include "utility/lasterror.h"

#include <cstdarg>
#include <mutex>
#include <unordered_map>

#include "platform/process.h"
#include "platform/systemerror.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestText = 1024;

// One entry per thread that ever failed; taken out when the thread ends.
struct CTexts {
    std::mutex lock;
    std::unordered_map<Platform::ThreadId, std::string> byThread;
};

CTexts& GetTexts() {
    static CTexts* texts = new CTexts;  // outlives every thread
    return *texts;
}

struct CThreadEnd {
    Platform::ThreadId thread = Platform::CurrentThreadId();
    ~CThreadEnd() {
        CTexts& texts = GetTexts();
        const std::lock_guard guard(texts.lock);
        texts.byThread.erase(thread);
    }
};

}  // namespace

// The system's error code stays what it was: callers look at both.
void SetLastErrorText(std::string_view text) {
    const Platform::SystemError code = Platform::LastSystemError();
    thread_local const CThreadEnd end;
    std::string kept(text.substr(0, LongestText));
    ReplaceAll(kept, "\r\n", " ");
    for (char& c : kept) {
        if (c == '\r' || c == '\n') c = ' ';
    }
    CTexts& texts = GetTexts();
    {
        const std::lock_guard guard(texts.lock);
        texts.byThread[end.thread] = std::move(kept);
    }
    Platform::SetLastSystemError(code);
}

void SetLastErrorFormat(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    SetLastErrorText(FormatTextV(format, arguments));
    va_end(arguments);
}

void SetLastErrorFromSystem(std::uint32_t code) {
    SetLastErrorText(Platform::SystemErrorText(code));
}

void SetLastErrorFromSystem() {
    SetLastErrorFromSystem(Platform::LastSystemError());
}

void SetLastErrorFromException(const std::exception& exception) {
    SetLastErrorText(exception.what());
}

void ClearLastErrorText() {
    CTexts& texts = GetTexts();
    const std::lock_guard guard(texts.lock);
    texts.byThread.erase(Platform::CurrentThreadId());
}

std::string GetLastErrorText() {
    CTexts& texts = GetTexts();
    const std::lock_guard guard(texts.lock);
    const auto found = texts.byThread.find(Platform::CurrentThreadId());
    return found == texts.byThread.end() ? std::string() : found->second;
}

std::string DescribeLastError() {
    std::string text = GetLastErrorText();
    return text.empty() ? "No error description available" : text;
}
