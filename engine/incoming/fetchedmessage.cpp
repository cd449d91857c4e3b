#include "engine/incoming/fetchedmessage.h"

#include <openssl/evp.h>

#include <array>

#include "utility/lasterror.h"
#include "utility/text.h"

struct CContentKey::CDigest {
    CDigest() : context(EVP_MD_CTX_new()) {
        isGood = context && EVP_DigestInit_ex(context, EVP_sha256(), nullptr) == 1;
    }
    CDigest(const CDigest&) = delete;
    CDigest& operator=(const CDigest&) = delete;
    ~CDigest() { EVP_MD_CTX_free(context); }

    EVP_MD_CTX* context;
    bool isGood;
};

CContentKey::CContentKey() = default;
CContentKey::~CContentKey() = default;

void CContentKey::Add(std::string_view bytes) {
    if (!m_digest) m_digest = std::make_unique<CDigest>();
    m_digest->isGood = m_digest->isGood && EVP_DigestUpdate(m_digest->context, bytes.data(), bytes.size()) == 1;
}

std::string CContentKey::Finish() {
    Add({});
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (!m_digest->isGood || EVP_DigestFinal_ex(m_digest->context, digest.data(), &size) != 1) return {};
    return "#" + EncodeHex({reinterpret_cast<const char*>(digest.data()), size});
}

CFetchedMessage::CFetchedMessage(CCycleTransaction& transaction, std::string_view key, std::int64_t now)
    : m_transaction(transaction), m_key(key), m_now(now), m_isKeyed(!key.empty()) {}

bool CFetchedMessage::Begin(std::string_view queueFolder) {
    return m_transaction.BeginMessage(queueFolder, m_file) && m_file.Write(MakeFetchedFields(m_now, m_key));
}

bool CFetchedMessage::Add(std::string_view block, std::uint64_t limit) {
    m_octets += block.size();
    m_content.Add(block);
    m_block.clear();
    const bool isInHeader = !m_header.IsComplete();
    m_header.Add(block, m_block);
    if (isInHeader && m_head.size() < LargestHeader) m_head.append(m_block);
    m_isTooLarge = m_octets > limit;
    return !m_isTooLarge && m_file.Write(m_block);
}

bool CFetchedMessage::AddHeader(std::string_view block) {
    m_octets += block.size();
    m_header.Add(block, m_head);
    return !HasWholeHeader();
}

bool CFetchedMessage::Finish(std::string& path) {
    m_block.clear();
    m_header.Finish(m_block);
    return m_file.Write(m_block) && (m_isKeyed || m_file.Overwrite(ServerIdOffset(m_now), m_key)) &&
           m_transaction.FinishMessage(m_file, &path);
}

// A header that is too long ends with its last whole line; of what came behind
// the header nothing stays.
bool CFetchedMessage::FinishHeader(std::string_view queueFolder, std::uint64_t size, std::string& path) {
    m_file = {};
    if (!m_header.IsComplete()) m_header.Finish(m_head);
    const std::size_t end = m_head.find("\r\n\r\n");
    if (m_head.starts_with("\r\n"))
        m_head.clear();
    else if (end != std::string::npos)
        m_head.resize(end + 2);
    else
        m_head.resize(m_head.rfind('\n', LargestHeader) + 1);
    return m_transaction.AddMessage(queueFolder, MakeFetchedFields(m_now, m_key, size) + m_head + "\r\n", &path);
}

std::string CFetchedMessage::MakeContentKey(std::string_view addition) {
    CContentKey ofHeader;
    const bool isWhole = !m_isTooLarge && m_file.HasFile();
    if (!isWhole) {
        ofHeader.Add(std::string_view(m_head).substr(0, LargestHeader));
        ofHeader.Add(addition);
    }
    const std::string key = isWhole ? m_content.Finish() : ofHeader.Finish();
    if (key.empty()) SetLastErrorText("This system does not allow SHA-256.");
    if (!m_isKeyed) m_key = key;
    return key;
}
