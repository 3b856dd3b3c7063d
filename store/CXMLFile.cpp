// The database file: one stored object from the first byte to the last. Loading never raises for
// a bad file, it logs; saving never opens an existing file for writing, so a failure at any
// step leaves the old file whole.
#include <cstdint>

#include "host/BinaryStream.h"
#include "host/Clock.h"
#include "host/LogChannel.h"
#include "host/RuntimeException.h"
#include "host/StringFunctions.h"
#include "store/CXML.h"

// The file is read whole and closed before it is parsed.
void CXML::loadFromFile(const host::Ref<host::FolderItem>& file,
                        const host::Ref<CXML>& /*second*/) {
    host::Ref<host::BinaryStream> stream = host::BinaryStream::Open(file->ShellPath());
    if (!stream) {
        return;
    }
    if (!(stream->Read(4) == kMagic)) {
        host::LogChannel::write("file at: " + file->ShellPath() + " is not an Ambrelis binary.", 4);
        return;
    }
    stream->SetPosition(0);
    host::String data = stream->Read(stream->Length(), host::TextEncoding::UTF8);
    stream->Close();
    auto reader = host::New<host::BinaryStream>(data);
    try {
        LoadFromBinaryStream(reader);
    } catch (const host::RuntimeException& e) {
        host::LogChannel::write(
            "unable to load MFRQ file: " + file->Name() + " with message: " + e.Message, 4);
    }
    reader->Close();
}

// Over an existing file the new content goes to a file beside it, which is then exchanged with
// the target in one step; the old content goes with the temporary file. Returns false only when
// the exchange fails, which leaves the temporary file, with the new content, behind.
bool CXML::SaveToFile(const host::Ref<host::FolderItem>& file) {
    bool exchange = file->Exists();
    host::Ref<host::FolderItem> written = file;
    if (exchange) {
        written =
            file->Parent()->Child(host::Format(host::Microseconds(), "#") + "_" + file->Name());
    }
    host::Ref<host::BinaryStream> stream = host::BinaryStream::Create(written->ShellPath());
    if (!stream) {
        host::LogChannel::write(
            "unable to create disk file due to error. Database remains unchanged.", 4);
        throw host::RuntimeException();
    }
    SaveToBinaryData(stream);
    stream->Close();
    if (!exchange) {
        return true;
    }
    std::int64_t error = written->ExchangeWith(*file);
    if (error != 0) {
        host::LogChannel::write(
            "error swapping files while saving: database remains unchanged " + host::Str(error), 4);
        return false;
    }
    written->Delete();
    return true;
}
