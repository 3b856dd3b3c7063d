// One database file: the input is written to a file of a private folder, loaded, walked, saved
// over itself and loaded again; the folder is emptied after each input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "CXMLWalk.h"
#include "FuzzInput.h"
#include "host/FolderItem.h"
#include "host/RuntimeException.h"
#include "store/CXML.h"

namespace {

std::filesystem::path& folder() {
    static std::filesystem::path path;
    return path;
}

void removeFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder(), ignored);
}

host::Ref<CXML> load(const host::Ref<host::FolderItem>& file) {
    auto record = host::New<CXML>();
    record->Constructor();
    record->loadFromFile(file, nullptr);
    return record;
}

std::size_t filesInFolder() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder())) {
        ++count;
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/cxml_file_fuzz_XXXXXX";
    fuzz::require(::mkdtemp(pattern.data()) != nullptr, "a private folder can be made");
    folder() = pattern;
    std::atexit(removeFolder);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path path = folder() / "units.db";
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        fuzz::require(out.good(), "the input can be written to a file");
    }
    const auto file = host::New<host::FolderItem>(host::String(path.string()));

    // The load logs what it cannot read and raises nothing.
    const auto record = load(file);
    fuzz::walk(record);

    bool saved = false;
    try {
        saved = record->SaveToFile(file);
    } catch (const host::RuntimeException&) {
        // Too deep to write: the stack check refused it, and the old file stays.
    }
    if (saved) {
        fuzz::require(filesInFolder() == 1, "a save over a file leaves that one file");
        fuzz::require(load(file)->SaveToString().sameBytes(record->SaveToString()),
                      "a saved record loads back the same");
    }

    for (const auto& entry : std::filesystem::directory_iterator(folder())) {
        std::filesystem::remove(entry.path());
    }
    return 0;
}
