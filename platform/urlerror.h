#pragma once

#include <QString>

#include <exception>

// The failure of a network request or of validating what it brought back. The codes and their
// numbers are those of the platform's URL loading system, so a code read in a log or a support
// conversation means the same thing on every build.
class UrlError : public std::exception {
public:
    enum Code : int {
        unknown = -1,
        cancelled = -999,
        badURL = -1000,
        timedOut = -1001,
        unsupportedURL = -1002,
        cannotFindHost = -1003,
        cannotConnectToHost = -1004,
        networkConnectionLost = -1005,
        badServerResponse = -1011,
        cannotParseResponse = -1017,
        dataLengthExceedsMaximum = -1103,
        secureConnectionFailed = -1200,
    };

    explicit UrlError(Code code, QString description = {});

    Code code() const { return m_code; }
    // What the network stack said, when it said anything; empty otherwise.
    QString description() const { return m_description; }
    // The code's name ("badServerResponse"), for logs and korvanectl.
    static QString name(Code code);
    const char *what() const noexcept override { return m_what.constData(); }

private:
    Code m_code;
    QString m_description;
    QByteArray m_what;
};

// JSON that is not the document we expect: not JSON at all, a required member missing or of
// the wrong type. Kept apart from UrlError because callers pass it on unchanged.
class DecodingError : public std::exception {
public:
    explicit DecodingError(QString message);
    QString message() const { return m_message; }
    const char *what() const noexcept override { return m_what.constData(); }

private:
    QString m_message;
    QByteArray m_what;
};
