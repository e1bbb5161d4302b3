#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

// The launcher's only persistent configuration: a key-value store whose writes are immediate
// and whose values keep their type. A string stored under a key is never read back as a bool,
// which is what lets a damaged or hand-edited entry fall back to its default instead of
// turning into a surprising value.
//
// Values are QVariants of these types only: Bool, LongLong, Double, QString, QByteArray,
// QVariantList and QVariantMap (whose members follow the same rule). Other integer types are
// normalised to LongLong when stored.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    // The stored value, or an invalid QVariant when the key is absent.
    virtual QVariant object(const QString &key) const = 0;
    virtual void setObject(const QString &key, const QVariant &value) = 0;
    virtual void remove(const QString &key) = 0;
    virtual QStringList keys() const = 0;

    bool contains(const QString &key) const { return object(key).isValid(); }

    // Typed reads follow the platform store's conventions: a bool is read from a bool, a
    // number (non-zero is true) or the strings "YES"/"true"/"1" (any case); anything else,
    // absent included, is false.
    bool boolValue(const QString &key) const;
    // A number (truncated) or a string holding one; 0 otherwise.
    qint64 integer(const QString &key) const;
    // A string, or a number's decimal text; nothing for every other type.
    std::optional<QString> string(const QString &key) const;
    // Binary data only; empty when absent or of another type.
    QByteArray data(const QString &key) const;
    // An array only; empty when absent or of another type.
    QVariantList array(const QString &key) const;
    std::optional<QStringList> stringArray(const QString &key) const;

    void setBool(const QString &key, bool value) { setObject(key, QVariant(value)); }
    void setInteger(const QString &key, qint64 value) { setObject(key, QVariant(value)); }
    void setString(const QString &key, const QString &value) { setObject(key, QVariant(value)); }
    void setData(const QString &key, const QByteArray &value) { setObject(key, QVariant(value)); }
    void setArray(const QString &key, const QVariantList &value) { setObject(key, QVariant(value)); }

    // Within a batch the store may keep its writes in memory and save them once, when the
    // outermost batch ends; reads see every write at once. Start-up sets many keys in a row,
    // and each save of the file waits for the disk.
    class Batch {
    public:
        explicit Batch(UserDefaults &defaults) : m_defaults(defaults) { m_defaults.beginBatch(); }
        ~Batch() { m_defaults.endBatch(); }
        Batch(const Batch &) = delete;
        Batch &operator=(const Batch &) = delete;

    private:
        UserDefaults &m_defaults;
    };

    // The user's own store: the application's user-defaults domain on macOS (korvanectl in the
    // bundle included), a JSON document in the user's configuration directory elsewhere.
    static std::unique_ptr<UserDefaults> openStandard();

    // Brings a value to one of the stored types; an unsupported type gives an invalid QVariant.
    static QVariant normalized(const QVariant &value);

protected:
    // The platform's store saves on its own schedule; only a store that saves every write
    // needs these.
    virtual void beginBatch() {}
    virtual void endBatch() {}
};

// A store kept as one JSON document on disk. Every write replaces the file atomically
// (QSaveFile, 0600); a change made by another process over the same file is picked up on the
// next read, so the launcher and korvanectl can share it.
class JsonUserDefaults final : public UserDefaults {
public:
    explicit JsonUserDefaults(QString path);

    QVariant object(const QString &key) const override;
    void setObject(const QString &key, const QVariant &value) override;
    void remove(const QString &key) override;
    QStringList keys() const override;

    QString path() const { return m_path; }
    // The last write error, empty after a successful write.
    QString lastError() const { return m_lastError; }

    // "korvane-launcher/defaults.json" in XDG_CONFIG_HOME (when absolute) or ~/.config: the
    // launcher's store on Linux, and korvanectl's on macOS when it runs outside the bundle.
    static QString standardLocation();

    // Larger documents are not parsed; they are treated as damaged.
    static constexpr qint64 maximumFileSize = 32 * 1024 * 1024;

protected:
    void beginBatch() override;
    void endBatch() override;

private:
    struct FileStamp {
        qint64 size = -1;
        qint64 modifiedNs = 0;
        quint64 inode = 0;
        bool operator==(const FileStamp &) const = default;
    };
    void reloadIfChanged() const;
    void write();
    FileStamp currentStamp() const;

    QString m_path;
    QString m_lastError;
    mutable QVariantMap m_values;
    mutable FileStamp m_stamp;
    mutable bool m_damaged = false;
    int m_batchDepth = 0;
    // Writes of the open batch not saved yet.
    bool m_unsaved = false;
};
