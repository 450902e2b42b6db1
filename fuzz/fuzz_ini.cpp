// The INI file parser (CIniFile) and the option objects that read their settings from it, from
// arbitrary file contents. The INI file has no version: the whole input is the file.
//
// Each input becomes the INI file of the run. The network and contour options are built from
// it (they read every key they know, the colour-class tables included), each getter is asked
// for a few keys, and then one key is written: the write must succeed, the key must read back
// as written, and no other key may change its value, whatever the rest of the file holds.

#include <dtm/contours/COpzCvLv.h>
#include <dtm/network/COpzTri.h>
#include <dtm/support/IniFile.h>

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzSupport.h"

namespace {

using dtm_fuzz::Check;

const char* const kSection = "CURVE";
// The key the target writes; it reads as no option of the library.
const char* const kProbeKey = "FuzzProbe";
constexpr double kProbeValue = 0.1;

// Keys whose values must survive the probe's write, among them keys that the colour classes
// build from a prefix and keys in a second section.
const char* const kWatchedKeys[] = {"AddSta",
                                    "CheckVncs",
                                    "DmC2",
                                    "TriSlFct",
                                    "ClCo3",
                                    "TriSymb",
                                    "TriClrType",
                                    "QuI1",
                                    "SiTe",
                                    "CdcC",
                                    "CvLvPref",
                                    "CvLvVAlgn",
                                    "ClAt5",
                                    "ClCo8",
                                    "CvLvClrByLayer",
                                    "TriGrCol-noclasses",
                                    "TriGrCol-class0-value",
                                    "CvLvsGrCol-custom",
                                    ""};

std::string g_path;  // the INI file of this process

std::string MakeIniPath() {
    // /dev/shm keeps the many small files of a run off the disk where it exists.
    std::string folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    folder += "/dtm-fuzz-ini-XXXXXX";
    std::vector<char> name(folder.begin(), folder.end());
    name.push_back('\0');
    Check(mkdtemp(name.data()) != nullptr, "a temporary folder can be created");
    return std::string(name.data()) + "/dtm.ini";
}

void RemoveIniFolder() {
    std::remove(g_path.c_str());
    rmdir(g_path.substr(0, g_path.rfind('/')).c_str());
}

void WriteFile(const std::string& path, const std::string& content) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    Check(file != nullptr, "the INI file can be created");
    Check(std::fwrite(content.data(), 1, content.size(), file) == content.size(),
          "the INI file can be written");
    std::fclose(file);
}

std::vector<std::string> WatchedValues(CIniFile& ini, const char* section) {
    std::vector<std::string> values;
    for (const char* key : kWatchedKeys)
        values.push_back(ini.GetKorString(section, key, "(absent)").str());
    return values;
}

void AskEveryGetter(CIniFile& ini) {
    for (const char* key : kWatchedKeys) {
        static_cast<void>(ini.GetBool(kSection, key, true));
        static_cast<void>(ini.GetLong(kSection, key, -1));
        static_cast<void>(ini.GetShort(kSection, key, -1));
        static_cast<void>(ini.GetDouble(kSection, key, -1.0));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    g_path = MakeIniPath();
    std::atexit(RemoveIniFolder);
    CIniFile::SetDefaultPath(g_path);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    WriteFile(g_path, dtm_fuzz::WholeInput(data, size));
    {
        // Both read every key they know on construction.
        const COpzTri network;
        const COpzCvLv contours;
        static_cast<void>(network.GetColorClasses().GetState());
        static_cast<void>(contours.GetColorClasses().GetState());
    }

    CIniFile ini(g_path);
    AskEveryGetter(ini);
    const std::vector<std::string> before = WatchedValues(ini, kSection);
    const std::vector<std::string> beforeElsewhere = WatchedValues(ini, "");

    Check(ini.WriteDouble(kSection, kProbeKey, kProbeValue), "a key can be written");
    Check(ini.GetDouble(kSection, kProbeKey, 0.0) == kProbeValue, "a written key reads back");
    Check(WatchedValues(ini, kSection) == before, "writing a key changes no other key");
    Check(WatchedValues(ini, "") == beforeElsewhere,
          "writing a key changes no key of another section");
    return 0;
}
