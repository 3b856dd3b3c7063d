// Values with a text form of their own: dates, file references, binary data, hidden strings.
#include <cstdint>

#include "host/Base64.h"
#include "host/StringFunctions.h"
#include "store/CXML.h"

namespace {

constexpr std::int64_t kBase64Line = 76;

std::int64_t numberField(const host::String& text, const char* separator, std::int64_t n) {
    return host::truncateToInt64(host::Val(host::NthField(text, separator, n)));
}

}  // namespace

// Stored as month/day/year hour:minute:second, without leading zeros or a time zone. A nil date
// clears the key.
void CXML::SetDate(const host::String& key, const host::Ref<host::Date>& value) {
    host::String name = defineRule(key);
    if (!value) {
        removeObject(name);
        return;
    }
    const host::Date& d = *value;
    SetStringValue(name, host::Str(d.Month()) + "/" + host::Str(d.Day()) + "/" +
                             host::Str(d.Year()) + " " + host::Str(d.Hour()) + ":" +
                             host::Str(d.Minute()) + ":" + host::Str(d.Second()));
}

// Each field lands on a date that still holds the present moment in the others, and the date
// normalises after each, so the order of the sets shows in the result. Missing fields set 0.
host::Ref<host::Date> CXML::getDate(const host::String& key) {
    const host::String* stored = storedText(key);
    if (stored == nullptr) {
        return nullptr;
    }
    auto date = host::New<host::Date>();
    host::String day = host::NthField(*stored, " ", 1);
    host::String time = host::NthField(*stored, " ", 2);
    date->SetMonth(numberField(day, "/", 1));
    date->SetDay(numberField(day, "/", 2));
    date->SetYear(numberField(day, "/", 3));
    date->SetHour(numberField(time, ":", 1));
    date->SetMinute(numberField(time, ":", 2));
    date->SetSecond(numberField(time, ":", 3));
    return date;
}

host::Ref<host::Date> CXML::getDate(const host::String& key,
                                    const host::Ref<host::Date>& defaultValue) {
    host::Ref<host::Date> date = getDate(key);
    return date ? date : defaultValue;
}

// A nil file clears the key as given.
void CXML::SetFile(const host::String& key, const host::Ref<host::FolderItem>& file) {
    if (!file) {
        removeObject(key);
        return;
    }
    SetStringValue(key, host::EncodeBase64(file->GetSaveInfo(), kBase64Line));
}

host::Ref<host::FolderItem> CXML::GetFile(const host::String& key) {
    const host::String* stored = storedText(key);
    if (stored == nullptr) {
        return nullptr;
    }
    return host::GetFolderItem(host::DecodeBase64(*stored));
}

void CXML::SetBinaryValue(const host::String& key, const host::String& data) {
    SetStringValue(key, host::EncodeBase64(data, kBase64Line));
}

// Through GetStringValue, so a value that is hidden as well is unwrapped before it is decoded.
host::String CXML::GetBinaryData(const host::String& key) {
    return host::DecodeBase64(GetStringValue(convertRule(key)));
}

// Not encryption: the value is only Base64 behind a marker, undone by GetStringValue. The blank
// appended and cut again gives the value the encoding of a concatenation.
void CXML::setEncryptedStringValue(const host::String& key, const host::String& value) {
    host::String plain = value + " ";
    plain = host::Left(plain, host::Len(plain) - 1);
    SetStringValue(key, hiddenMark() + host::EncodeBase64(plain, kBase64Line));
}
