#pragma once

#include "common/xml/xml.h"
#include "oracle/logs/arch_log_info.h"

#include <windows.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace specific {
namespace oracle {

// A record of the inventory document that writes itself as one element. The
// document is the agent's wire format: element and attribute names, and the
// order in which attributes are set, are fixed.
class COracleProps {
public:
    virtual ~COracleProps() = default;
    // A new document whose root is this record's element.
    virtual std::shared_ptr<util::xml_document_t> ToXml() const = 0;

    bool isError = false;
    std::wstring errorDescription;
};

using COraclePropsPtr = std::shared_ptr<COracleProps>;

// Facts about the machine, written as attributes of the root.
class CEnvProps {
public:
    CEnvProps(std::wstring serverName, std::wstring osName);

    const std::wstring& GetServerName() const { return serverName; }
    const std::wstring& GetOsName() const { return osName; }

private:
    std::wstring serverName;
    std::wstring osName;
};

class COverallProps : public COracleProps {
public:
    std::shared_ptr<util::xml_document_t> ToXml() const override;

    std::vector<COraclePropsPtr> homes;
    std::shared_ptr<CEnvProps> env;
};

class CHomeProps : public COracleProps {
public:
    explicit CHomeProps(std::wstring name);
    std::shared_ptr<util::xml_document_t> ToXml() const override;

    std::wstring name;
    std::wstring version;
    std::wstring path;
    std::wstring desc;
    std::vector<COraclePropsPtr> children;
};

class CDbFileProps : public COracleProps {
public:
    CDbFileProps(std::wstring path, std::wstring size);
    std::shared_ptr<util::xml_document_t> ToXml() const override;

    std::wstring path;
    std::wstring size;
};

using CDbFileList = std::vector<std::shared_ptr<CDbFileProps>>;

class CDatabaseProps : public COracleProps {
public:
    // Stamps timeUtc with the moment of construction.
    CDatabaseProps();
    std::shared_ptr<util::xml_document_t> ToXml() const override;

    std::wstring name;
    std::wstring globalName;
    std::wstring recoveryFileDest;
    std::wstring sid;
    std::wstring localListener;
    std::wstring remoteListener;
    bool archiveLogsOn = false;
    bool isReadonly = false;
    bool reverted = false;
    bool hasGuaranteedRestorePoints = false;
    bool isCluster = false;
    std::wstring config;
    std::wstring id;
    std::wstring lastScn;
    std::wstring lastLogNum;
    std::wstring maxLogRecId;
    std::wstring maxLogStamp;
    CDbFileList controlFiles;
    CDbFileList dataFiles;
    CDbFileList logFiles;
    CDbFileList tempFiles;
    // Redo log member, exactly as V$LOGFILE spells it, to its group number.
    std::map<std::wstring, std::string> logGroups;
    CArchLogList archivedLogs;
    std::wstring timeUtc;
    std::wstring pwdFilePath;
    // Base64 of the parameter file's bytes.
    std::string pfile;
    // Pluggable databases: name and GUID.
    std::vector<std::pair<std::wstring, std::wstring>> pdbs;

private:
    void WriteNormal(util::xml_node_t& element) const;
    void WriteLogGroups(const util::xml_node_t& element) const;
};

class CAsmDiskProps : public COracleProps {
public:
    CAsmDiskProps(std::wstring name, std::wstring path, std::wstring state);
    std::shared_ptr<util::xml_document_t> ToXml() const override;

    std::wstring name;
    std::wstring path;
    std::wstring state;
};

class CAsmInstanceProps : public COracleProps {
public:
    explicit CAsmInstanceProps(std::wstring sid);
    std::shared_ptr<util::xml_document_t> ToXml() const override;

    std::wstring sid;
    std::vector<COraclePropsPtr> disks;
};

// Appends a deep copy of the child's element at the end of `parent`; a child
// document without an element adds nothing.
void AddChild(util::xml_node_t& parent, const COracleProps& child);

// Quarter hours east of UTC for a GetTimeZoneInformation result and its record.
int32_t TimeZoneQuarterHours(DWORD result, const TIME_ZONE_INFORMATION& zone);

} // namespace oracle
} // namespace specific
