// Forms for people: a dump of the keys to the log and an indented text of the whole tree. Values
// are shown as stored, hidden ones included; nothing reads these forms back.
#include <cstdint>
#include <string>

#include "host/LogChannel.h"
#include "host/StackCheck.h"
#include "host/StringFunctions.h"
#include "store/CXML.h"

void CXML::DebugToLog() {
    host::LogChannel::write("--- begin debug", 4);
    for (std::int64_t i = 0; i < Values.Count(); ++i) {
        host::LogChannel::write(Values.Key(i).stringValue() + " : " + Values.valueAt(i), 4);
    }
    host::LogChannel::write("---end debug", 4);
}

// Four blanks per level, four already at depth 0. The header line has no indent, so a child's
// header finishes the "Container: " line its parent began.
void CXML::saveToReadableString(const host::Ref<host::BinaryStream>& stream, std::int64_t depth) {
    host::checkStack();
    host::BinaryStream& out = *stream;
    host::String indent(std::string(4 * static_cast<std::size_t>(depth < 0 ? 0 : depth + 1), ' '));
    host::String endOfLine = host::EndOfLine();
    host::Array<host::DictionaryKey> keys = Values.Keys();
    out.Write("(" + host::Str(keys.Count()) + ") value keys" + endOfLine);
    for (const host::DictionaryKey& key : keys) {
        out.Write(indent + key.stringValue() + "=" + Values.Value(key) + endOfLine);
    }
    for (std::int64_t i = 1; i <= containers_.Ubound(); ++i) {
        const host::Ref<CXML>& child = containers_[i];
        if (!child) {
            out.Write(indent + "Container is nil at index " + host::Str(i) + endOfLine);
            continue;
        }
        out.Write(indent + "Container: " + child->name_ + " ");
        child->saveToReadableString(stream, depth + 1);
    }
}

host::String CXML::getAsDebugData() {
    auto block = host::New<host::MemoryBlock>(0);
    auto stream = host::New<host::BinaryStream>(block);
    saveToReadableString(stream, 0);
    stream->Close();
    return host::String(std::move(block->bytes()));
}

host::String CXML::DecodeXMLString(const host::String& text) {
    return host::ReplaceAll(text, "_", " ");
}

void CXML::SaveToPlistDEP(const host::Ref<CXML>& /*target*/) {}

host::String CXML::SaveToPlistStringDEP() {
    return {};
}
