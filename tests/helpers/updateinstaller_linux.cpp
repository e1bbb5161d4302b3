// Installs an update archive the way the launcher does and prints each step as it begins, so
// that a test can kill it at any moment and know where it was.
// usage: updateinstaller_linux ARCHIVE INSTALL_ROOT PUBLIC_KEY_BASE64 LENGTH SIGNATURE_BASE64
// Exit status: 0 installed, 1 refused (the reason on stderr), 2 wrong usage.

#include "updates/archiveinstall.h"

#include <QByteArray>
#include <QString>

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 6) {
        std::fputs("usage: updateinstaller_linux ARCHIVE INSTALL_ROOT PUBLIC_KEY LENGTH SIGNATURE\n", stderr);
        return 2;
    }
    const auto step = [](ArchiveInstall::Step step) {
        static const char *const names[] = {"verifying", "extracting", "checking", "installing", "cleaning"};
        std::printf("%s\n", names[int(step)]);
        std::fflush(stdout);
    };
    try {
        ArchiveInstall::install(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]),
                                QByteArray::fromBase64(argv[3]), QByteArray(argv[4]).toLongLong(),
                                QByteArray::fromBase64(argv[5]), step);
    } catch (const ArchiveInstallError &error) {
        std::fprintf(stderr, "%s: %s\n", error.what(), error.detail().toLocal8Bit().constData());
        return 1;
    }
    std::printf("done\n");
    return 0;
}
