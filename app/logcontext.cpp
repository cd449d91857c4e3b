#include "app/logcontext.h"

#include <utility>

namespace {

thread_local std::string context;

}  // namespace

CLogContext::CLogContext(std::string name) : m_former(std::exchange(context, std::move(name))) {}

CLogContext::~CLogContext() {
    context = std::move(m_former);
}

const std::string& GetLogContext() {
    return context;
}
