// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What programs are compiled against: members and their order, types, values of enumerators, signatures.
// Most of it is held at compile time, so that a change does not even build.
#include <gtest/gtest.h>

#include <type_traits>

#include "ombrel/ombrel.h"
#include "platform/vesksyslog.h"
#include "tests/fake/platform_test.h"

namespace {

using Settings = _SYSLOG_CONF_SETTINGS_tag;
using Text = const std::string&;

template <typename Enum, typename Underlying>
constexpr bool kIsBasedOn = std::is_same_v<std::underlying_type_t<Enum>, Underlying>;

static_assert(kIsBasedOn<_SYSLOG_ARCH_FMT_tag, unsigned int>);
static_assert(SYSLOG_ARCH_FMT_DB == 0 && SYSLOG_ARCH_FMT_XML == 1 && SYSLOG_ARCH_FMT_TXT == 2);
static_assert(kIsBasedOn<SYSLOG_TRANSMISSION_MODE, int>);
static_assert(SYSLOG_TRANSMISSION_TCP == 0 && SYSLOG_TRANSMISSION_UDP == 1);
static_assert(kIsBasedOn<__SYSLOG_SERVICE_ENABLE_CMD_tag, int>);
static_assert(SYSLOG_SERVICE_START == 0 && SYSLOG_SERVICE_STOP == 1);
static_assert(SYSLOG_SERVICE_RESTART == 2 && SYSLOG_SERVICE_RELOAD == 3);
static_assert(kIsBasedOn<_CUSTOMIZED_RULE_CMD_tag, int>);
static_assert(CUSTOMIZED_RULE_ENABLE == 0 && CUSTOMIZED_RULE_DISABLE == 1);
static_assert(kIsBasedOn<_SYSLOG_DB_PRIORITY_tag, int> && kIsBasedOn<_SYSLOG_EXTKEY_TB_TYPE_tag, int>);

template <typename Class>
constexpr bool kIsPlain = !std::is_polymorphic_v<Class> && std::is_default_constructible_v<Class>;
static_assert(kIsPlain<Settings> && std::is_aggregate_v<Settings>);
static_assert(kIsPlain<_SYSLOG_WORKING_DB_tag> && kIsPlain<_CUSTOMIZED_RULE_tag>);
static_assert(kIsPlain<LogArchiver> && kIsPlain<PostProcessor>);

template <typename Expected, typename Actual>
constexpr bool isOf(Actual /*function*/) {
    return std::is_same_v<Expected, Actual>;
}

static_assert(isOf<int (*)(Text, Settings&)>(SyslogServerConfGet));
static_assert(isOf<int (*)(Text, Settings&)>(SyslogStorageConfGet));
static_assert(isOf<int (*)(Text, Settings&)>(SyslogConfGet));
static_assert(isOf<int (*)(VLIBSZHASH*, Text, Settings&)>(SyslogFileKeySet));
static_assert(isOf<int (*)(__SYSLOG_SERVICE_ENABLE_CMD_tag, char*)>(SyslogUpstartJobEnable));
static_assert(isOf<int (*)(Text, int, SYSLOG_TRANSMISSION_MODE, Text)>(VESKOmbrelPortRegister));
static_assert(isOf<int (*)(Text)>(VESKOmbrelPortUnregister));
static_assert(isOf<int (*)(Text, Settings&, Settings&)>(SyslogServerConfSet));
static_assert(isOf<int (*)(Text, Settings&, Settings&)>(SyslogStorageConfSet));
static_assert(isOf<int (*)(Text, Settings&)>(SyslogConfSet));
static_assert(isOf<bool (*)(Text, unsigned long long)>(IsVolumeSpaceEnough));
static_assert(isOf<int (*)(VLIBSZLIST**)>(SyslogAvailShareGet));
static_assert(isOf<bool (*)(Text)>(SyslogIsShareValid));
static_assert(isOf<int (*)(Text, Text)>(SyslogDBFileMove));

/// Of the functions of one name; what is not there does not compile.
template <typename Function, Function kFunction>
constexpr bool kHasOverload = true;

using Working = _SYSLOG_WORKING_DB_tag;
static_assert(isOf<bool (*)(Working, Working)>(SameDevice));
static_assert(isOf<int (LogArchiver::*)(Text)>(&LogArchiver::ConfigLoad));
static_assert(isOf<int (LogArchiver::*)(Text)>(&LogArchiver::DBSizeGet));
static_assert(isOf<long long (LogArchiver::*)(Text)>(&LogArchiver::DBStartTimeGet));
static_assert(isOf<long long (LogArchiver::*)(Text)>(&LogArchiver::DBEndTimeGet));
static_assert(isOf<long long (LogArchiver::*)(Text)>(&LogArchiver::DBCountGet));
static_assert(isOf<std::list<Working> (LogArchiver::*)()>(&LogArchiver::CurrentWorkingDBGet));
static_assert(isOf<std::string (LogArchiver::*)(Working&)>(&LogArchiver::ArchDestGet));
static_assert(isOf<std::list<Working> (LogArchiver::*)()>(&LogArchiver::ArchiveCheck));
static_assert(isOf<int (LogArchiver::*)()>(&LogArchiver::ArchiveAll));
static_assert(kHasOverload<int (LogArchiver::*)(Working&, bool),
                           static_cast<int (LogArchiver::*)(Working&, bool)>(&LogArchiver::DoArchive)>);
static_assert(kHasOverload<int (LogArchiver::*)(std::list<Working>&, bool),
                           static_cast<int (LogArchiver::*)(std::list<Working>&, bool)>(&LogArchiver::DoArchive)>);

static_assert(isOf<int (PostProcessor::*)(std::string)>(&PostProcessor::ConfigLoad));
static_assert(isOf<std::string (PostProcessor::*)(std::string)>(&PostProcessor::TranTempDirGet));
static_assert(isOf<int (PostProcessor::*)(std::string)>(&PostProcessor::PostProcess));
static_assert(isOf<int (PostProcessor::*)(std::string, _SYSLOG_ARCH_FMT_tag)>(&PostProcessor::DBTransform));
static_assert(isOf<int (PostProcessor::*)(std::string, std::string)>(&PostProcessor::DB2TXT));
static_assert(isOf<int (PostProcessor::*)(std::string, std::string)>(&PostProcessor::DB2XML));
static_assert(isOf<int (PostProcessor::*)(std::string)>(&PostProcessor::DBIndexAdd));
static_assert(isOf<int (PostProcessor::*)(std::string, std::string, std::string)>(&PostProcessor::FileCompress));

using Rule = _CUSTOMIZED_RULE_tag;
static_assert(isOf<int (*)(Text, Rule&)>(VESKCustomizedRuleGet));
static_assert(isOf<int (*)(const Rule&)>(VESKCustomizedRuleAdd));
static_assert(isOf<int (*)(Text, const Rule&)>(VESKCustomizedRuleSet));
static_assert(isOf<int (*)(Text)>(VESKCustomizedRuleDel));
static_assert(kHasOverload<int (*)(std::list<std::string>&),
                           static_cast<int (*)(std::list<std::string>&)>(VESKCustomizedRuleEnum)>);
static_assert(
    kHasOverload<std::list<std::string> (*)(), static_cast<std::list<std::string> (*)()>(VESKCustomizedRuleEnum)>);
static_assert(isOf<int (*)(Text)>(VESKCustomizedRuleNameCheck));
static_assert(isOf<int (*)(Text, _CUSTOMIZED_RULE_CMD_tag)>(VESKCustomziedRuleControl));
static_assert(isOf<int (*)(Text, int, Text)>(VESKCustomizedRulePortCheck));
static_assert(isOf<int (*)()>(VESKCustomizedRuleShareCheck));

static_assert(isOf<std::string (*)(std::string&)>(SyslogUpdaterArchNameGet));
static_assert(isOf<std::string (*)()>(SyslogUpdaterServiceFolderGet));
static_assert(isOf<std::string (*)()>(SyslogUpdaterArchiveFolderGet));
static_assert(isOf<std::string (*)()>(SyslogUpdaterVolTmpFolderGet));
static_assert(isOf<int (*)(std::string&)>(SyslogUpdaterOldDbTotalGet));
static_assert(isOf<bool (*)(std::string&)>(SyslogUpdaterUpdDbCheck));
static_assert(isOf<int (*)(std::string&)>(SyslogUpdaterUpdDbProgGet));
static_assert(isOf<bool (*)(std::string&)>(SyslogUpdaterOldDbCheck));
static_assert(isOf<bool (*)(std::string&, std::string&)>(SyslogUpdaterUpdCompete));

class Interface : public ombrel::test::PlatformTest {};

/// Both are the same object: the same place and, held at compile time, the same type.
template <typename Member>
void expectSame(const Member& atPlace, const Member& byName) {
    EXPECT_EQ(&atPlace, &byName);
}

template <typename... Members>
constexpr bool kAreInts = (std::is_same_v<Members, int> && ...);

TEST_F(Interface, TheSettingsRecordHasItsFieldsInThisOrder) {
    Settings r;
    const auto& [bsd, ssl, port, trans, ietf, ietfSsl, ietfPort, ietfTrans, loc, path, key, file, dest, time, size,
                 count, format, compress, byDevice, local, last, line, timeout, timeOn, countOn] = r;
    static_assert(
        kAreInts<decltype(r.bsd_enable), decltype(r.server_ssl), decltype(r.server_port), decltype(r.server_trans),
                 decltype(r.ietf_enable), decltype(r.server_ietf_ssl), decltype(r.server_ietf_port),
                 decltype(r.server_ietf_trans), decltype(r.arch_time), decltype(r.arch_size),
                 decltype(r.arch_count), decltype(r.arch_compress), decltype(r.arch_by_device),
                 decltype(r.localarchive_enable), decltype(r.system_flush_line), decltype(r.system_flush_timeout),
                 decltype(r.arch_time_enable), decltype(r.arch_count_enable)>);
    static_assert(std::is_same_v<decltype(r.arch_last_time), long long>);
    expectSame(bsd, r.bsd_enable);
    expectSame(ssl, r.server_ssl);
    expectSame(port, r.server_port);
    expectSame(trans, r.server_trans);
    expectSame(ietf, r.ietf_enable);
    expectSame(ietfSsl, r.server_ietf_ssl);
    expectSame(ietfPort, r.server_ietf_port);
    expectSame(ietfTrans, r.server_ietf_trans);
    expectSame(loc, r.server_db_loc);
    expectSame(path, r.server_db_path);
    expectSame(key, r.server_ca_key);
    expectSame(file, r.server_ca_file);
    expectSame(dest, r.arch_dest);
    expectSame(time, r.arch_time);
    expectSame(size, r.arch_size);
    expectSame(count, r.arch_count);
    expectSame(format, r.arch_fmt);
    expectSame(compress, r.arch_compress);
    expectSame(byDevice, r.arch_by_device);
    expectSame(local, r.localarchive_enable);
    expectSame(last, r.arch_last_time);
    expectSame(line, r.system_flush_line);
    expectSame(timeout, r.system_flush_timeout);
    expectSame(timeOn, r.arch_time_enable);
    expectSame(countOn, r.arch_count_enable);
}

TEST_F(Interface, AWorkingDatabaseIsThreeTexts) {
    const Working db{"device", "name", "path"};
    EXPECT_EQ(db.strDevice, "device");
    EXPECT_EQ(db.strDBName, "name");
    EXPECT_EQ(db.strDBPath, "path");
}

TEST_F(Interface, ARuleHasItsFieldsInThisOrder) {
    const Rule rule;
    const auto& [name, format, protocol, port, ssl, enable] = rule;
    expectSame(name, rule.name);
    expectSame(format, rule.format);
    expectSame(protocol, rule.protocol);
    expectSame(port, rule.port);
    expectSame(ssl, rule.ssl);
    expectSame(enable, rule.enable);
    static_assert(kAreInts<decltype(rule.port)> && std::is_aggregate_v<Rule>);
    static_assert(std::is_same_v<decltype(rule.ssl), bool> && std::is_same_v<decltype(rule.enable), bool>);
}

TEST_F(Interface, TheClassesHaveTheirMembersInThisOrder) {
    const LogArchiver archiver;
    const auto& [count, interval, size, format, compress, byDevice, dest, last] = archiver;
    expectSame(count, archiver.ArchCount);
    expectSame(interval, archiver.ArchInterval);
    expectSame(size, archiver.ArchSize);
    expectSame(format, archiver.ArchFmt);
    expectSame(compress, archiver.Compress);
    expectSame(byDevice, archiver.ByDevice);
    expectSame(dest, archiver.strArchDest);
    expectSame(last, archiver.LastArchTime);
    static_assert(kAreInts<decltype(archiver.ArchCount), decltype(archiver.ArchInterval),
                           decltype(archiver.ArchSize), decltype(archiver.Compress), decltype(archiver.ByDevice)>);
    static_assert(std::is_same_v<decltype(archiver.LastArchTime), long long>);

    const PostProcessor processor;
    const auto& [compressText, textFormat] = processor;
    expectSame(compressText, processor.Compress);
    expectSame(textFormat, processor.ArchFmt);
    static_assert(std::is_same_v<decltype(processor.Compress), int>);
}

TEST_F(Interface, ALogRowHasThirteenMembersOfWhichTheExportReadsThese) {
    _SYSLOG_LOG_DATA_tag row;
    const auto& [m0, m1, m2, m3, m4, m5, m6, m7, m8, m9, m10, m11, m12] = row;
    expectSame(m3, row.priority);
    expectSame(m5, row.hostId);
    expectSame(m7, row.facilityId);
    expectSame(m9, row.date);
    expectSame(m10, row.time);
    expectSame(m11, row.programId);
    expectSame(m12, row.message);
}

}  // namespace
