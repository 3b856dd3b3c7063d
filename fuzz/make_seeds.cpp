// Writes the binary seed corpora: messages made by the message class, unit lists and records
// made by the record class, and a few damaged forms of them made by hand. Run from the source
// tree as `build-fuzz/fuzz/make_seeds fuzz/corpus` (target make_seeds, not built by default); the
// text corpora are kept as written.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>

#include "host/StringFunctions.h"
#include "store/CXML.h"
#include "store/UnitListRecord.h"
#include "wire/cAmbrelisCommand.h"

namespace {

using namespace std::string_literals;

using Pairs = std::initializer_list<std::pair<const char*, std::string>>;

std::filesystem::path root;

void write(const char* target, const char* name, const std::string& bytes) {
    const std::filesystem::path folder = root / target;
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << bytes;
}

std::string multi(Pairs pairs) {
    cAmbrelisCommand cmd;
    cmd.Constructor();
    for (const auto& [key, value] : pairs) {
        cmd.SetMulti(key, host::String(value));
    }
    return cmd.GetRawCommand().bytes();
}

// A common message from the writer: header, command, house and unit code, and flag bits.
std::string common(const char* header, const std::string& command, const char* flags = "0") {
    cAmbrelisCommand cmd;
    cmd.Constructor();
    cmd.Header = header;
    cmd.Command = host::String(command);
    cmd.Address1 = "0";
    cmd.Address2 = "3";
    cmd.SetFlag(flags);
    return cmd.GetRawCommand().bytes();
}

host::Ref<CXML> record() {
    auto made = host::New<CXML>();
    made->Constructor();
    return made;
}

// Two ping units and one MAC unit, as the controller sends them.
std::string unitList() {
    return UnitListRecord::bytes({{17, "192.168.1.20", "Printer"},
                                  {18, "a4:5e:60:d1:22:9f", "Phone"},
                                  {19, "nas.local", "NAS"}});
}

// The record with the key a holding 1 and one empty child b.
std::string smallRecord() {
    auto small = record();
    small->SetStringValue("a", "1");
    auto child = record();
    child->SetName("b");
    small->InsertContainer(child);
    return small->SaveToString().bytes();
}

std::string typedRecord() {
    auto typed = record();
    typed->SetIntegervalue("count", -42);
    typed->SetDoubleValue("ratio", 0.125);
    typed->SetBooleanValue("enabled", true);
    typed->SetColorValue("colour", host::RGB(255, 128, 0));
    typed->SetDate("seen", host::New<host::Date>(3'800'000'000.0));
    typed->SetBinaryValue("blob", host::String("\000\001\376\377"s));
    typed->setEncryptedStringValue("secret", "hunter2");
    auto nested = record();
    nested->SetName("level1");
    auto deeper = record();
    deeper->SetName("level2");
    deeper->SetStringValue("leaf", "yes");
    nested->InsertContainer(deeper);
    typed->InsertContainer(nested);
    return typed->SaveToString().bytes();
}

void writeRecords(const char* target) {
    const std::string units = unitList();
    write(target, "empty", "MfrqAL  E");
    write(target, "small_record", smallRecord());
    write(target, "unit_list", units);
    write(target, "typed_values", typedRecord());
    // Big-endian lengths, which the writer never makes.
    write(target, "big_endian", "MfrqAB  V\000\000\000\001a\000\000\000\0011E"s);
    // Junk between records, an older version with an unknown byte order, and a stream cut
    // inside a value.
    write(
        target, "damaged",
        "Mfrq0Q  zzV\001\000\000\000k\005\000\000\000value??"s + units.substr(8, units.size() / 2));
    // A child whose header carries a newer version.
    write(target, "newer_child", "MfrqAL  O\001\000\000\000cMfrqBL  EE"s);
}

void writeMessages() {
    write("common_message", "plain", common("X", "2"));
    write("common_message", "control_quit", common("X", "Q", "&h40"));
    write("common_message", "measurement", common("X", "Z"));
    write("common_message", "low_battery", common("X", "U"));  // 85, the low-battery form of 84
    write("common_message", "all_flags", common("Y", "A", "&hFE"));
    write("common_message", "log_level", "L\012\003started");
    write("common_message", "log_no_level", "L\012Hello\r");
    write("common_message", "analog", "M\020a@LX\0000A03\00001FF"s);
    write("common_message", "error", "E\020a@LX\0007203\000\000\000 \r"s);
    write("common_message", "signal", "N\020a@PX\0000203\000\000\000 \264"s);
    write("common_message", "short", "X\005ab");

    write("multi_packet", "get_units", multi({{"mcmd", "getUnits"}}));
    write("multi_packet", "on_update",
          multi({{"mcmd", "ON"}, {"addr", "192.168.1.20"}, {"UpDt", "true"}}));
    write("multi_packet", "properties",
          multi({{"mcmd", "NoOp"},
                 {"UPN0", "IP"},
                 {"UPV0", " 192.168.1.20 "},
                 {"UPN1", "response time"},
                 {"UPV1", "0.412"},
                 {"addr", "192.168.1.20"}}));
    write("multi_packet", "log_line",
          multi({{"mcmd", "WrtL"}, {"Valu", "2"}, {"DATA", "Tamsvale ISF connecting..."}}));
    write("multi_packet", "units", multi({{"mcmd", "setUnits"}, {"DATA", unitList()}}));
    write("multi_packet", "short_key", multi({{"IP", "x"}, {"UPN10", "y"}}));
    write("multi_packet", "empty", "J\004\000\200"s);
    write("multi_packet", "big_endian", "J\015\000\000mcmd\000\003OFF"s);
    write("multi_packet", "cut_short",
          multi({{"mcmd", "UnitDeleted"}, {"addr", "10.0.0.9"}}).substr(0, 22));

    const std::string ping = multi({{"mcmd", "ping"}});
    write("link_delivery", "ping", ping);
    write("link_delivery", "units_then_deleted",
          multi({{"mcmd", "setUnits"}, {"DATA", unitList()}}) +
              multi({{"mcmd", "UnitDeleted"}, {"addr", "192.168.1.20"}, {"UnID", "17"}}) +
              multi({{"mcmd", "UnitDeleted"}, {"addr", "a4:5e:60:d1:22:9f"}, {"UnID", "18"}}) +
              multi({{"mcmd", "UnitDeleted"}, {"addr", "10.0.0.9"}, {"UnID", "99"}}));
    write("link_delivery", "control",
          common("X", "D", "&h40") + common("X", "d", "&h40") + common("X", "X", "&h40") +
              common("X", "Q", "&h40") + common("X", "P", "&h40"));
    write("link_delivery", "debug_then_close",
          multi({{"mcmd", "debug"}, {"Valu", "TRUE"}}) +
              multi({{"mcmd", "DEBUG"}, {"Valu", "no"}}) + multi({{"mcmd", "close"}}));
    // A malformed message, a good one, and a multi-packet whose rest has not come yet.
    write("link_delivery", "mixed",
          std::string("Z\003x") + ping +
              multi({{"mcmd", "setUnits"}, {"DATA", unitList()}}).substr(0, 40));
    // A common message without the control flag ends in the failure guard; the ping behind it
    // comes with the next delivery.
    write("link_delivery", "guarded", common("X", "2") + ping);
    write("link_delivery", "lower_case_lead", "j" + ping.substr(1));
    // A common message whose rest never comes: the cutter turns until its bound.
    write("link_delivery", "partial_common", std::string("X\020a@"));
    // Floods whose delivery ends in the first bytes of a multi-packet: with two, its length byte
    // is read as a common message's and the cutter turns; with one, it logs the malformed line
    // on every pass.
    std::string flood;
    for (int i = 0; i < 200; ++i) {
        flood += ping;
    }
    write("link_delivery", "flood_cut_in_length", flood + ping.substr(0, 2));
    write("link_delivery", "flood_then_lone_byte", flood + ping.substr(0, 1));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
        return 2;
    }
    root = argv[1];
    writeMessages();
    writeRecords("cxml_string");
    writeRecords("cxml_file");
    write("cxml_file", "not_a_database", "PK\003\004\024\000\000\000"s);
    return 0;
}
