#include <algorithm>
#include <array>

#include "app/pumpmessages.h"
#include "app/settings.h"
#include "engine/crc32.h"
#include "engine/eventlog.h"
#include "engine/littleendian.h"
#include "engine/stable.h"
#include "engine/stablestate.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"

// An upgrade writes the records anew into P.new, then P.new.ver: from that
// instant on the new table counts, and renaming P.new over P and writing P.ver
// is only finished by whoever comes next.  A P.new without P.new.ver is scrap.
// The texts stay where they are; references are carried over as they are.

namespace {

constexpr std::string_view SourceName = "Shared/Engine/stable";
constexpr std::size_t JournalSize = 20;
constexpr std::uint32_t JournalMark = 0x4E56484CU;  // "LHVN"
constexpr std::uint64_t FlagsLookedAt = 4096;

struct Journal {
    std::uint32_t version = 0;
    std::uint64_t size = 0;  // of P.new
};

std::string AsText(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string EncodeJournal(const Journal& journal) {
    std::array<std::byte, JournalSize> bytes{};
    PutU32(bytes.data(), JournalMark);
    PutU32(bytes.data() + 4, journal.version);
    PutU64(bytes.data() + 8, journal.size);
    PutU32(bytes.data() + 16, Crc32(std::span<const std::byte>(bytes).first(16)));
    return AsText(bytes);
}

bool DecodeJournal(std::string_view text, Journal& journal) {
    const auto bytes = std::as_bytes(std::span(text));
    if (bytes.size() != JournalSize || GetU32(bytes.data()) != JournalMark ||
        GetU32(bytes.data() + 16) != Crc32(bytes.first(16))) {
        return false;
    }
    journal.version = GetU32(bytes.data() + 4);
    journal.size = GetU64(bytes.data() + 8);
    return true;
}

std::string FolderOf(const std::string& path) {
    const std::string folder = ParentFolder(path);
    return folder.empty() ? "." : folder;
}

bool RemoveIfThere(const std::string& path) {
    return Platform::RemoveFile(path) || Platform::IsNotFound(Platform::LastSystemError());
}

}  // namespace

std::uint32_t CSTable::CState::ReadVersionFile(bool& isThere) const {
    const std::string versionPath = path + ".ver";
    Platform::CFile versionFile;
    isThere = versionFile.Open(versionPath, Platform::FileMode::Read);
    if (!isThere) {
        const Platform::SystemError code = Platform::LastSystemError();
        if (!Platform::IsNotFound(code)) {
            throw CLhvException("The version file \"" + versionPath + "\" cannot be read.", code);
        }
        Log(LogDebug2, "### No version file! Assuming LH 2.0 Professional Edition.\n");
        return OldestVersion;
    }
    std::array<std::byte, 4> bytes{};
    if (!versionFile.ReadAt(0, bytes.data(), bytes.size())) {
        throw CLhvException(InternalErrorText(SourceName, 903) + " (" + versionPath + ")");
    }
    return GetU32(bytes.data());
}

void CSTable::CState::WriteVersionFile(std::uint32_t newVersion) const {
    std::array<std::byte, 4> bytes{};
    PutU32(bytes.data(), newVersion);
    const std::string versionPath = path + ".ver";
    if (!WriteFileAtomically(versionPath, AsText(bytes))) {
        throw CLhvException(InternalErrorText(SourceName, 924) + " (" + versionPath + ")", Platform::LastSystemError());
    }
}

bool CSTable::CState::OpenFiles() {
    if (HasRewriting()) {
        Platform::CNamedMutex mutex(TableMutexName(path));
        const CMutexGuard guard(mutex);
        FinishRewriting();
    }
    bool hasVersionFile = true;
    if (create && !Platform::FileIsThere(path)) {
        version = CurrentVersion;
        WriteVersionFile(version);
        isNewName = true;
    } else {
        version = ReadVersionFile(hasVersionFile);
    }
    Log(LogDebug2, "### Version of %s: %u\n", path.c_str(), version);
    const auto mode = create     ? Platform::FileMode::OpenOrCreate
                      : readOnly ? Platform::FileMode::Read
                                 : Platform::FileMode::ReadWrite;
    if (!file.Open(path, mode)) return false;
    Platform::FileStatus status;
    identity = Platform::GetFileStatus(path, status) ? status.identity : 0;
    layout = MakeLayout(descriptions, version);
    recordSize = layout.recordSize;
    CheckLayout(hasVersionFile);
    if (layout.hasTexts) {
        texts = std::make_unique<CTextStore>();
        texts->Open(path, readOnly ? CTextStore::Access::ReadOnly : CTextStore::Access::ReadWrite);
    }
    Log(LogDebug2, "### Record size in %s: %i\n", path.c_str(), recordSize);
    if (version < CurrentVersion && !readOnly) Upgrade();
    return true;
}

bool CSTable::CState::FlagsFit(std::uint64_t size) const {
    const std::uint64_t records = std::min(Length() / size, FlagsLookedAt);
    for (std::uint64_t i = 0; i < records; ++i) {
        char flag = 0;
        if (!file.ReadAt(i * size, &flag, 1)) Fail("cannot be read.");
        if (flag != 'N' && flag != 'Y') return false;
    }
    return true;
}

// A wrong guess at the version would tear every record to pieces.
void CSTable::CState::CheckLayout(bool hasVersionFile) const {
    const std::uint64_t length = Length();
    Platform::SetLastSystemError(0);
    if (layout.columnCount == 1 && length > 0) FailInternal(176);
    if (static_cast<std::int32_t>(version) > static_cast<std::int32_t>(CurrentVersion)) {
        Fail("was written by a newer version of the program.");
    }
    if (hasVersionFile || length == 0) return;
    const auto oldSize = static_cast<std::uint64_t>(layout.recordSize);
    const auto newSize = static_cast<std::uint64_t>(MakeLayout(descriptions, CurrentVersion).recordSize);
    const bool fitsOld = FlagsFit(oldSize);
    if (oldSize == newSize || (length % oldSize == 0 && fitsOld)) return;
    const bool fitsNew = length % newSize == 0 && FlagsFit(newSize);
    Platform::SetLastSystemError(0);
    if (fitsNew) Fail("has no version file, and its length fits only the current version.");
    if (!fitsOld) Fail("has no version file, and its records fit no version that had none.");
}

bool CSTable::CState::HasRewriting() const {
    return Platform::FileIsThere(path + ".new.ver") || (!readOnly && Platform::FileIsThere(path + ".new"));
}

// The caller holds the mutex: what is there has been left by a dead process.
void CSTable::CState::FinishRewriting() {
    const std::string newPath = path + ".new";
    const std::string journalPath = path + ".new.ver";
    if (!Platform::FileIsThere(journalPath)) {
        if (!RemoveIfThere(newPath)) Fail("has a file .new beside it that cannot be removed.");
        return;
    }
    std::string text;
    Journal journal;
    if (!ReadWholeFile(journalPath, text)) Fail("was being upgraded; its file .new.ver cannot be read.");
    Platform::SetLastSystemError(0);
    if (!DecodeJournal(text, journal)) Fail("was being upgraded; its file .new.ver is damaged.");
    Platform::FileStatus status;
    if (Platform::GetFileStatus(newPath, status)) {
        if (status.size != journal.size) Fail("was being upgraded; its file .new is damaged.");
        if (!Platform::RenameReplacing(newPath, path)) Fail("cannot be replaced by its upgraded form.");
    } else if (!Platform::GetFileStatus(path, status)) {
        Fail("was being upgraded and is missing.");
    }
    bool isThere = false;
    if (ReadVersionFile(isThere) != journal.version || !isThere) {
        Platform::SetLastSystemError(0);
        if (status.size != journal.size) Fail("was being upgraded; its file .new is missing.");
        WriteVersionFile(journal.version);
    }
    const std::string folder = FolderOf(path);
    if (!Platform::FlushFolder(folder) || !RemoveIfThere(journalPath) || !Platform::FlushFolder(folder)) {
        Fail("cannot be replaced by its upgraded form.");
    }
}

// What has been written aside, unless it counts already.
void CSTable::CState::DropRewriting() const noexcept {
    try {
        if (!RemoveIfThere(path + ".new.ver") || !Platform::FlushFolder(FolderOf(path))) return;
        Platform::RemoveFile(path + ".new");
    } catch (const std::exception& e) {
        Log(LogWarning, "The file %s.new is left: %s", path.c_str(), e.what());
    }
}

void CSTable::CState::WriteUpgraded(const Layout& next, Platform::CFile& to) {
    const auto pause = static_cast<std::uint32_t>(std::max(0, ReadSetting("Execution", "UpgradePause", 50)));
    const auto window =
        OpenProgressWindow("Upgrading database table to current version", static_cast<std::uint32_t>(Count()));
    std::string written;
    ForEachBlock([&](std::int32_t, std::span<const std::byte> block) {
        for (std::size_t at = 0; at < block.size(); at += static_cast<std::size_t>(recordSize)) {
            CheckStop();
            std::vector<std::byte> record(static_cast<std::size_t>(next.recordSize));
            record[0] = block[at] == std::byte{'Y'} ? std::byte{'Y'} : std::byte{'N'};
            for (std::size_t i = 1; i < next.columns.size(); ++i) {
                const Column& from = layout.columns[i];
                const Column& column = next.columns[i];
                std::byte* const target = record.data() + std::max(column.offset, 0);
                if (from.offset >= 0) {
                    const auto source = block.begin() + static_cast<std::ptrdiff_t>(at) + from.offset;
                    const bool isText = from.type == ColumnType::Text;
                    const auto end =
                        isText ? std::find(source, source + from.declaredSize, std::byte{0}) : source + from.size;
                    std::copy(source, end, target);
                } else if (column.offset >= 0 && column.type == ColumnType::StoredText) {
                    PutU32(target, static_cast<std::uint32_t>(CTextStore::NoText));
                }
            }
            written += AsText(record);
            if (written.size() >= BlockBytes) {
                if (!to.Write(written)) Fail("cannot be upgraded.");
                written.clear();
            }
            if (pause > 0) Platform::SleepMilliseconds(pause);
            if (!PumpMessages()) {
                Platform::SetLastSystemError(0);
                Fail("was not upgraded: the work was interrupted.");
            }
            window->Step();
        }
        return true;
    });
    if (!to.Write(written) || !to.Flush()) Fail("cannot be upgraded.");
}

void CSTable::CState::Upgrade() {
    Platform::CNamedMutex mutex(TableMutexName(path));
    const CMutexGuard guard(mutex);
    bool isThere = false;
    Platform::FileStatus status;
    const bool isCurrent =
        ReadVersionFile(isThere) == version && Platform::GetFileStatus(path, status) && status.identity == identity;
    const Layout next = MakeLayout(descriptions, CurrentVersion);
    if (isCurrent && Count() > 0) {
        Log(LogDebug2, "### Upgrading version of %s to %u\n", path.c_str(), CurrentVersion);
    }
    if (isCurrent && (Count() == 0 || next.columnCount == layout.columnCount)) {
        WriteVersionFile(CurrentVersion);
    } else if (isCurrent) {
        const std::string newPath = path + ".new";
        Journal journal{CurrentVersion, 0};
        try {
            Platform::CFile to;
            if (!to.Open(newPath, Platform::FileMode::CreateOrEmpty)) Fail("cannot be upgraded.");
            WriteUpgraded(next, to);
            if (!to.GetSize(journal.size) || !to.Close()) Fail("cannot be upgraded.");
            if (!Platform::FlushFolder(FolderOf(path)) ||
                !WriteFileAtomically(path + ".new.ver", EncodeJournal(journal))) {
                Fail("cannot be upgraded.");
            }
        } catch (...) {
            DropRewriting();
            throw;
        }
        file.Close();
        FinishRewriting();
    }
    file.Close();
    texts.reset();
    if (!OpenFiles()) Fail("cannot be opened after it was upgraded.");
}
