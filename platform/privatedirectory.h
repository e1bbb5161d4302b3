#pragma once

#include <QDir>
#include <QString>

// The launcher's own folders (settings, data, backups, diagnostics) hold the user's bottle paths,
// play history and reports, so nobody else on the machine may list or read them.
namespace PrivateDirectory {

// Creates `path` and every missing folder above it, each with mode 0700 whatever the umask;
// folders that already exist keep their mode. Returns false, with the reason in `error` when
// given, when some part of the path exists and is not a folder or cannot be created.
bool create(const QString &path, QString *error = nullptr);

// A working folder that is removed with everything in it when its owner leaves scope, however
// it leaves, so that no half-written report or listing is left in the temporary directory.
class Removal {
public:
    explicit Removal(QString path) : m_path(std::move(path)) {}
    ~Removal() { QDir(m_path).removeRecursively(); }
    Removal(const Removal &) = delete;
    Removal &operator=(const Removal &) = delete;
    const QString &path() const { return m_path; }

private:
    QString m_path;
};

} // namespace PrivateDirectory
