// textstorestate.h - the open files of a text store; for textstore*.cpp only.

#ifndef LISTHAVEN_ENGINE_TEXTSTORESTATE_H
#define LISTHAVEN_ENGINE_TEXTSTORESTATE_H

#include <string>
#include <vector>

#include "engine/textstore.h"
#include "engine/textstoreformat.h"
#include "platform/file.h"

struct CTextStore::CState {
    // What is to become free.  The stamp tells whether it is still the same text.
    struct Unreleased {
        std::int32_t reference = TextStoreFormat::NoReference;
        TextStoreFormat::Entry entry;
        bool wholeReference = false;  // else only the extent, which the entry has left
    };

    std::string indexPath;
    std::string textPath;
    Access access = Access::ReadOnly;
    bool isOpen = false;
    Platform::CFile index;
    Platform::CFile texts;
    std::vector<Unreleased> unreleased;

    [[noreturn]] void Fail(const std::string& path, const char* what) const;
    bool OpenFile(Platform::CFile& file, const std::string& path);  // false when it is not there
    bool OpenExisting();                                            // false when there is no index file
    void OpenForWriting();
    void CreateFiles();
    bool HasHeader(const Platform::CFile& file, const std::string& path, std::size_t size, std::span<std::byte> header);

    std::uint64_t IndexSize() const;
    std::uint64_t TextSize() const;
    std::int32_t CountReferences() const;

    void WriteIndex(std::uint64_t offset, std::span<const std::byte> bytes);
    void WriteTexts(std::uint64_t offset, std::span<const std::byte> bytes);
    TextStoreFormat::Entry ReadEntry(std::int32_t reference) const;
    void WriteEntry(std::int32_t reference, const TextStoreFormat::Entry& entry);
    Outcome ReadExtent(std::int32_t reference, const TextStoreFormat::Entry& entry, std::string& text) const;
    bool IsOwnExtent(std::int32_t reference, const TextStoreFormat::Entry& entry) const;

    std::int32_t TakeReference();
    std::uint64_t TakeExtent(int sizeClass, bool& isNew);
    TextStoreFormat::Entry WriteText(std::int32_t reference, std::string_view text);
    void ReleaseAll();
};

#endif  // LISTHAVEN_ENGINE_TEXTSTORESTATE_H
