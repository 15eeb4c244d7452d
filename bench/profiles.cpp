// A value looked up in a profile, and one changed, beside their floors and other readers of
// profiles.
#define SI_NO_CONVERSION  // its header for that is not in the package
#include <SimpleIni.h>
#include <glib.h>
#include <ini.h>
#include <iniparser/iniparser.h>
#include <stdio.h>
#include <string.h>

#include <memory>

#include "floor.h"
#include "korx/ini.h"

namespace bench {
namespace {

constexpr size_t kKeysOfSection = 100;

// Many keys; the last of them is looked for.
struct Profile {
    std::string path;
    std::string section;
    std::string key;
    std::string value;

    Profile(std::string at, size_t keys) : path(std::move(at)) {
        const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "we"), fclose);
        MUST(file != nullptr);
        for (size_t i = 0; i < keys; ++i) {
            if (i % kKeysOfSection == 0) {
                section = "section" + std::to_string(i / kKeysOfSection);
                fprintf(file.get(), "%s[%s]\n", i == 0 ? "" : "\n", section.c_str());
            }
            key = "key" + std::to_string(i);
            value = "value of " + std::to_string(i);
            fprintf(file.get(), "%s=%s\n", key.c_str(), value.c_str());
        }
        MUST(fflush(file.get()) == 0);
    }

    std::string header() const { return "[" + section + "]"; }
};

// --- Looking up ---

void LookUp(const Profile& profile) {
    char value[64];
    MUST(KORX_IniGetValue(profile.path.c_str(), profile.header().c_str(), profile.key.c_str(),
                          value, sizeof value) == 0 &&
         profile.value == value);
}

void ReadLines(const std::string& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
    MUST(file != nullptr);
    char line[400];
    while (fgets(line, sizeof line, file.get()) != nullptr)
        Keep(line);
}

void LookUpFloor(const Profile& profile) {
    Resolve(profile.path);
    Look(profile.path);
    ReadLines(profile.path);
}

void LookUpWithInih(const Profile& profile) {
    struct Search {
        const Profile& profile;
        bool found;
    } search = {profile, false};
    const auto handler = [](void* user, const char* section, const char* key, const char* value) {
        auto& wanted = *static_cast<Search*>(user);
        if (wanted.profile.key == key && wanted.profile.section == section)
            wanted.found = wanted.profile.value == value;
        return 1;
    };
    MUST(ini_parse(profile.path.c_str(), handler, &search) == 0 && search.found);
}

void LookUpWithIniparser(const Profile& profile) {
    const std::unique_ptr<dictionary, void (*)(dictionary*)> loaded(
        iniparser_load(profile.path.c_str()), iniparser_freedict);
    const std::string name = profile.section + ":" + profile.key;
    MUST(loaded != nullptr && profile.value == iniparser_getstring(loaded.get(), name.c_str(), ""));
}

void LookUpWithSimpleIni(const Profile& profile) {
    CSimpleIniA loaded;
    MUST(loaded.LoadFile(profile.path.c_str()) == SI_OK);
    MUST(profile.value == loaded.GetValue(profile.section.c_str(), profile.key.c_str(), ""));
}

using KeyFile = std::unique_ptr<GKeyFile, void (*)(GKeyFile*)>;

KeyFile Load(const Profile& profile, GKeyFileFlags flags) {
    KeyFile file(g_key_file_new(), g_key_file_free);
    MUST(g_key_file_load_from_file(file.get(), profile.path.c_str(), flags, nullptr));
    return file;
}

void LookUpWithGlib(const Profile& profile) {
    const KeyFile file = Load(profile, G_KEY_FILE_NONE);
    const std::unique_ptr<char, void (*)(void*)> value(
        g_key_file_get_string(file.get(), profile.section.c_str(), profile.key.c_str(), nullptr),
        g_free);
    MUST(value != nullptr && profile.value == value.get());
}

Contest Lookups(size_t keys) {
    const auto profile = std::make_shared<Profile>(InMemory() + "/lookup.ini", keys);
    const auto looking_up = [=](const char* name, Role role, void (*look_up)(const Profile&)) {
        return Contestant{name, role, [=] { return [=] { look_up(*profile); }; }};
    };
    Contest contest{.name = "KORX_IniGetValue",
                    .operations = 20000 / keys + 5,
                    .size = keys,
                    .contestants = {looking_up("korx", Role::kOurs, LookUp),
                                    looking_up("floor", Role::kFloor, LookUpFloor),
                                    looking_up("inih", Role::kPeer, LookUpWithInih),
                                    looking_up("simpleini", Role::kPeer, LookUpWithSimpleIni),
                                    looking_up("GKeyFile", Role::kPeer, LookUpWithGlib)}};
    if (keys <= 1000)  // it takes a second for more, and everybody would wait for it
        contest.contestants.push_back(looking_up("iniparser", Role::kPeer, LookUpWithIniparser));
    return contest;
}

// --- Changing ---

void SyncFile(const std::string& path) {
    const Descriptor file(path, O_RDONLY);
    MUST(fsync(file.get()) == 0);
}

// The new file whole and on the disk, a backup, the old name; then what holds the names.
void Replace(const std::string& path, const std::string& directory, const std::string& content) {
    const std::string fresh = path + "+", backup = path + "-";
    {
        const Descriptor file(fresh, O_WRONLY | O_CREAT | O_EXCL, 0600);
        struct stat status;
        MUST(stat(path.c_str(), &status) == 0 && fchmod(file.get(), status.st_mode & 0740) == 0 &&
             fchown(file.get(), status.st_uid, status.st_gid) == 0);
        Put(file.get(), 0, content.data(), content.size());
        MUST(fsync(file.get()) == 0);
    }
    (void) unlink(backup.c_str());
    MUST(link(path.c_str(), backup.c_str()) == 0 && rename(fresh.c_str(), path.c_str()) == 0);
    SyncFile(directory);
}

void Change(const Profile& profile, const std::string&) {
    MUST(KORX_IniSetOrAddValue(profile.path.c_str(), profile.header().c_str(), profile.key.c_str(),
                               "changed") == 0);
}

void ChangeFloor(const Profile& profile, const std::string& directory) {
    const Descriptor lock(profile.path + ".lock", O_WRONLY | O_CREAT);
    SetRecordLock(lock.get(), F_WRLCK);
    Resolve(profile.path);
    ReadLines(profile.path);
    const Descriptor old(profile.path, O_RDWR);
    SetRecordLock(old.get(), F_WRLCK);
    struct stat status;
    MUST(fstat(old.get(), &status) == 0);
    Replace(profile.path, directory, std::string(static_cast<size_t>(status.st_size), '\n'));
    SyncFile(profile.path);
    SetRecordLock(old.get(), F_UNLCK);
    SetRecordLock(lock.get(), F_UNLCK);
}

void ChangeWithGlib(const Profile& profile, const std::string& directory) {
    const KeyFile file = Load(profile, G_KEY_FILE_KEEP_COMMENTS);
    g_key_file_set_string(file.get(), profile.section.c_str(), profile.key.c_str(), "changed");
    gsize size = 0;
    const std::unique_ptr<char, void (*)(void*)> content(
        g_key_file_to_data(file.get(), &size, nullptr), g_free);
    Replace(profile.path, directory, {content.get(), size});
}

Contest Changes(const char* name, const std::string& directory, size_t operations) {
    using Way = void (*)(const Profile&, const std::string&);
    const auto changing = [&](const char* who, Role role, Way change) {
        const auto profile = std::make_shared<Profile>(directory + "/" + who + ".ini", 100);
        return Contestant{who, role, [=] { return [=] { change(*profile, directory); }; }};
    };
    return {.name = name,
            .operations = operations,
            .contestants = {changing("korx", Role::kOurs, Change),
                            changing("floor", Role::kFloor, ChangeFloor),
                            changing("GKeyFile", Role::kPeer, ChangeWithGlib)}};
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    Begin(argc, argv);
    for (const size_t keys : {10, 100, 1000, 20000})
        Hold(Lookups(keys));
    Hold(Changes("KORX_IniSetOrAddValue, memory", InMemory(), 100));
    Hold(Changes("KORX_IniSetOrAddValue, disk", OnDisk(), 10));
}
