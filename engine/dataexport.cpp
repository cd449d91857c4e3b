#include "engine/dataexport.h"

#include <vector>

#include "engine/csvtext.h"
#include "platform/file.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace DataExport {

namespace {

constexpr std::size_t WriteStep = std::size_t{256} << 10;
constexpr std::int32_t ProgressStep = 1000;

// Under another name until it is whole.
class CExportFile {
public:
    explicit CExportFile(const std::string& path)
        : m_path(path), m_temporary(path + "." + std::to_string(Platform::RandomNumber()) + ".tmp") {}
    CExportFile(const CExportFile&) = delete;
    CExportFile& operator=(const CExportFile&) = delete;
    ~CExportFile() {
        if (!m_file.IsOpen()) return;
        m_file.Close();
        Platform::RemoveFile(m_temporary);
    }

    bool Open() { return m_file.Open(m_temporary, Platform::FileMode::CreateNew) || Fail(); }

    void AddCell(std::string_view cell) {
        if (!m_isLineStart) m_waiting += ',';
        m_isLineStart = false;
        if (IsValidUtf8(cell)) {
            AppendCsvCell(m_waiting, cell);
        } else {
            AppendCsvCell(m_waiting, Windows1252ToUtf8(cell));
        }
    }

    bool EndLine() {
        m_waiting += "\r\n";
        m_isLineStart = true;
        return m_waiting.size() < WriteStep || WriteWaiting();
    }

    bool Publish() {
        if (!WriteWaiting()) return false;
        if (!m_file.Flush()) return Fail();
        m_file.Close();
        if (Platform::RenameReplacing(m_temporary, m_path))
            return Platform::FlushFolder(ParentFolder(m_path)) || Fail();
        Fail();
        Platform::RemoveFile(m_temporary);
        return false;
    }

private:
    bool WriteWaiting() {
        if (!m_file.Write(m_waiting)) return Fail();
        m_waiting.clear();
        return true;
    }

    bool Fail() const {
        SetLastErrorText(m_path + ": " + Platform::SystemErrorText(Platform::LastSystemError()));
        return false;
    }

    std::string m_path;
    std::string m_temporary;
    Platform::CFile m_file;
    std::string m_waiting;
    bool m_isLineStart = true;
};

std::vector<int> DefinedSlots(const CCustomFields& fields) {
    std::vector<int> slots;
    for (int slot = 0; slot < CCustomFields::SlotCount; ++slot) {
        if (!fields.GetSlot(slot).IsFree()) slots.push_back(slot);
    }
    return slots;
}

bool WriteHeader(CExportFile& file, const CCustomFields& fields, const std::vector<int>& slots) {
    for (const std::string_view name : {"E-mail", "Name", "First name", "Middle name", "Last name", "Mode"}) {
        file.AddCell(name);
    }
    for (const int slot : slots)
        file.AddCell(fields.GetSlot(slot).name);
    return file.EndLine();
}

bool WriteMember(CExportFile& file, const CMember& member, const std::vector<int>& slots) {
    for (const std::string* text :
         {&member.address, &member.name, &member.firstName, &member.middleName, &member.lastName}) {
        file.AddCell(*text);
    }
    file.AddCell(DeliveryModeName(member.mode));
    for (const int slot : slots)
        file.AddCell(member.GetField(slot));
    return file.EndLine();
}

bool WriteMembers(CExportFile& file, CMemberStore& members, const std::vector<int>& slots, std::uint64_t& exported,
                  const Progress& progress) {
    SlotMask wanted = NoSlots;
    for (const int slot : slots)
        wanted |= SlotMask{1} << slot;
    const std::int32_t total = members.GetRecordCount();
    bool isGoingOn = true;
    members.ForEach(wanted, [&](std::int32_t index, const CMember& member) {
        isGoingOn = WriteMember(file, member, slots);
        if (isGoingOn) ++exported;
        if (isGoingOn && progress && index % ProgressStep == 0 && !progress(index, total)) {
            SetLastErrorText("The export was cancelled.");
            isGoingOn = false;
        }
        return isGoingOn;
    });
    return isGoingOn;
}

}  // namespace

bool ExportMembers(CMemberStore& members, const CCustomFields& fields, const std::string& path, std::uint64_t& exported,
                   const Progress& progress) {
    exported = 0;
    try {
        CExportFile file(path);
        const std::vector<int> slots = DefinedSlots(fields);
        return file.Open() && WriteHeader(file, fields, slots) &&
               WriteMembers(file, members, slots, exported, progress) && file.Publish();
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

}  // namespace DataExport
