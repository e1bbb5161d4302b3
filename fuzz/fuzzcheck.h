#pragma once

// Shared by the fuzz targets: a failed invariant stops the run with a message libFuzzer keeps
// beside the crashing input, and per-process scratch space for parsers that only read files.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "invariant broken at %s:%d: %s\n", __FILE__, __LINE__, #condition); \
            __builtin_trap();                                                                      \
        }                                                                                          \
    } while (false)

namespace FuzzSupport {

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// One directory per fuzzing process, removed when it exits (several jobs may run at once). In
// memory where the system offers it: the store's atomic writes sync to disk, which would
// otherwise cost most of each run.
inline const QString &scratch()
{
    static const QString parent = QFileInfo(QStringLiteral("/dev/shm")).isWritable() ? QStringLiteral("/dev/shm")
                                                                                      : QDir::tempPath();
    static QTemporaryDir directory(parent + QStringLiteral("/kvn-fuzz-XXXXXX"));
    if (!directory.isValid()) {
        std::fprintf(stderr, "no scratch directory: %s\n", qPrintable(directory.errorString()));
        std::abort();
    }
    static const QString path = directory.path();
    return path;
}

inline void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size()) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        std::abort();
    }
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        std::abort();
    }
    return file.readAll();
}

// The library warns about every damaged document it meets; under the fuzzer that is every run.
inline const bool silenced = [] {
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return true;
}();

} // namespace FuzzSupport
