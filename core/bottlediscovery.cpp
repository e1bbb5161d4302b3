#include "core/bottlediscovery.h"

#include <QCollator>
#include <QDir>
#include <QFile>

#include <algorithm>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The directory extensions that macOS presents as a single file. Their insides are never
// bottles, and an application bundle alone can hold tens of thousands of files.
bool isPackage(const char *name)
{
    const char *dot = std::strrchr(name, '.');
    if (!dot || dot == name)
        return false;
    static constexpr const char *extensions[] = {".app", ".bundle", ".framework", ".plugin", ".kext",
                                                 ".pkg", ".mpkg", ".xpc", ".appex", ".qlgenerator",
                                                 ".photoslibrary", ".musiclibrary", ".rtfd"};
    for (const char *extension : extensions)
        if (::strcasecmp(dot, extension) == 0)
            return true;
    return false;
}

// A walk over directory descriptors: each directory is opened relative to its parent, so no
// path is built for the hundreds of thousands of entries that are not bottles. The one path
// string grows and shrinks with the walk and is only copied when a bottle is found.
class Walker {
public:
    explicit Walker(std::string root) : m_path(std::move(root)) {}

    void walk(int directoryDescriptor)
    {
        DIR *directory = ::fdopendir(directoryDescriptor);
        if (!directory) {
            ::close(directoryDescriptor);
            return;
        }
        const int descriptor = ::dirfd(directory);
        while (const dirent *entry = ::readdir(directory)) {
            const char *name = entry->d_name;
            if (name[0] == '.') // hidden entries, "." and ".." among them
                continue;
            if (std::strcmp(name, "cxbottle.conf") == 0)
                found.append(Bottle{QFile::decodeName(QByteArray(m_path.data(), qsizetype(m_path.size())))});

            bool isDirectory = entry->d_type == DT_DIR;
            if (entry->d_type == DT_UNKNOWN) {
                struct stat status {};
                isDirectory = ::fstatat(descriptor, name, &status, AT_SYMLINK_NOFOLLOW) == 0
                              && S_ISDIR(status.st_mode);
            }
            if (!isDirectory || isPackage(name))
                continue;
            const int child = ::openat(descriptor, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child < 0)
                continue; // unreadable: nothing below it counts
            const size_t length = m_path.size();
            m_path += '/';
            m_path += name;
            walk(child);
            m_path.resize(length);
        }
        ::closedir(directory);
    }

    QList<Bottle> found;

private:
    std::string m_path;
};

} // namespace

QList<Bottle> BottleDiscovery::find(const QString &root)
{
    if (root.isEmpty())
        return {};
    const QByteArray encoded = QFile::encodeName(QDir::cleanPath(root));
    const int descriptor = ::open(encoded.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return {};
    Walker walker(encoded == "/" ? std::string() : encoded.toStdString());
    walker.walk(descriptor);
    return walker.found;
}

QList<Bottle> BottleDiscovery::sorted(const QList<Bottle> &bottles, const std::function<bool(const Bottle &)> &hasSteam)
{
    QCollator collator{QLocale()};
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    collator.setNumericMode(false);

    struct Keyed {
        Bottle bottle;
        bool steam;
        QString name;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(size_t(bottles.size()));
    for (const Bottle &bottle : bottles)
        keyed.push_back({bottle, hasSteam(bottle), bottle.name()});
    std::stable_sort(keyed.begin(), keyed.end(), [&collator](const Keyed &a, const Keyed &b) {
        if (a.steam != b.steam)
            return a.steam;
        return collator.compare(a.name, b.name) < 0;
    });
    QList<Bottle> result;
    result.reserve(bottles.size());
    for (Keyed &entry : keyed)
        result.append(std::move(entry.bottle));
    return result;
}
