// korvane-release: the keys and signatures a Linux release of the launcher needs.
//   keygen SECRET_FILE                 a new Ed25519 seed; prints the public key (SUPublicEDKey)
//   public-key SECRET_FILE             prints the public key of an existing secret
//   sign-tree SECRET_FILE TREE         writes the signed manifest into an install tree
//   sign-archive SECRET_FILE ARCHIVE URL [--os NAME]
//                                      prints the appcast <enclosure> element of the archive
// Exit status: 0 done, 1 failed, 2 wrong usage.

#include "updates/appcast.h"
#include "updates/archiveinstall.h"
#include "updates/ed25519.h"
#include "updates/treemanifest.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

constexpr int failed = 1;
constexpr int wrongUsage = 2;

struct Failure {
    QString message;
};

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

int usage()
{
    err() << "usage: korvane-release keygen SECRET_FILE\n"
             "       korvane-release public-key SECRET_FILE\n"
             "       korvane-release sign-tree SECRET_FILE TREE\n"
             "       korvane-release sign-archive SECRET_FILE ARCHIVE URL [--os linux|macos]\n";
    err().flush();
    return wrongUsage;
}

QByteArray readSeed(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Failure{u"cannot read %1: %2"_s.arg(path, file.errorString())};
    const auto decoded = QByteArray::fromBase64Encoding(file.read(1024).trimmed(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != Ed25519::seedSize)
        throw Failure{u"%1 does not hold a secret key made by keygen"_s.arg(path)};
    return decoded.decoded;
}

int keygen(const QString &secretPath)
{
    const QByteArray seed = Ed25519::newSeed();
    QFile file(secretPath);
    // NewOnly: an existing key is never overwritten, not even by a race with another keygen.
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        throw Failure{file.exists() ? u"%1 exists already; it is not replaced"_s.arg(secretPath)
                                    : u"cannot create %1: %2"_s.arg(secretPath, file.errorString())};
    const QByteArray text = seed.toBase64() + '\n';
    if (file.write(text) != text.size() || !file.flush()) {
        file.remove();
        throw Failure{u"cannot write %1"_s.arg(secretPath)};
    }
    out() << QString::fromLatin1(Ed25519::publicKey(seed).toBase64()) << '\n';
    return 0;
}

int signTree(const QString &secretPath, const QString &tree)
{
    const QByteArray seed = readSeed(secretPath);
    try {
        TreeManifest::sign(tree, seed);
    } catch (const TreeManifestError &error) {
        throw Failure{QString::fromStdString(error.what())};
    }
    const auto verification = TreeManifest::verify(tree, Ed25519::publicKey(seed));
    if (!verification.isOk())
        throw Failure{u"the tree changed while it was signed: %1"_s.arg(verification.description())};
    out() << tree << ": " << TreeManifest::list(tree).size() << " entries signed\n";
    return 0;
}

int signArchive(const QString &secretPath, const QString &archivePath, const QString &urlText,
                const QString &operatingSystem)
{
    const QUrl url(urlText, QUrl::TolerantMode);
    if (!url.isValid() || url.scheme() != u"https" || url.host().isEmpty() || !url.userInfo().isEmpty())
        throw Failure{u"%1 is not an https address without a user name"_s.arg(urlText)};
    const QByteArray seed = readSeed(secretPath);
    QFile file(archivePath);
    if (!file.open(QIODevice::ReadOnly))
        throw Failure{u"cannot read %1: %2"_s.arg(archivePath, file.errorString())};
    if (file.size() > ArchiveInstall::maximumArchiveSize)
        throw Failure{u"%1 is larger than an update may be"_s.arg(archivePath)};
    const QByteArray archive = file.readAll();
    if (archive.isEmpty())
        throw Failure{u"%1 is empty"_s.arg(archivePath)};
    out() << "<enclosure url=\"" << url.toString(QUrl::FullyEncoded).toHtmlEscaped() << "\" length=\""
          << archive.size() << "\" type=\"application/octet-stream\" sparkle:os=\"" << operatingSystem
          << "\" sparkle:edSignature=\"" << QString::fromLatin1(Ed25519::sign(seed, archive).toBase64()) << "\"/>\n";
    return 0;
}

int run(QStringList arguments)
{
    if (arguments.isEmpty())
        return usage();
    const QString command = arguments.takeFirst();
    if (command == u"keygen" && arguments.size() == 1)
        return keygen(arguments[0]);
    if (command == u"public-key" && arguments.size() == 1) {
        out() << QString::fromLatin1(Ed25519::publicKey(readSeed(arguments[0])).toBase64()) << '\n';
        return 0;
    }
    if (command == u"sign-tree" && arguments.size() == 2)
        return signTree(arguments[0], arguments[1]);
    if (command == u"sign-archive") {
        QString operatingSystem = u"linux"_s;
        if (const qsizetype option = arguments.indexOf(u"--os"_s); option >= 0) {
            if (option + 1 >= arguments.size())
                return usage();
            operatingSystem = arguments[option + 1];
            arguments.remove(option, 2);
            if (operatingSystem != u"linux" && operatingSystem != u"macos")
                return usage();
        }
        if (arguments.size() == 3)
            return signArchive(arguments[0], arguments[1], arguments[2], operatingSystem);
    }
    return usage();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    try {
        const int status = run(application.arguments().mid(1));
        out().flush();
        return status;
    } catch (const Failure &failure) {
        out().flush();
        err() << "korvane-release: " << failure.message << '\n';
        err().flush();
        return failed;
    }
}
