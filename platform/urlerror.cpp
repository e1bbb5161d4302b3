#include "platform/urlerror.h"

using namespace Qt::StringLiterals;

UrlError::UrlError(Code code, QString description)
    : m_code(code), m_description(std::move(description))
{
    m_what = (name(code) + (m_description.isEmpty() ? QString() : u": "_s + m_description)).toUtf8();
}

QString UrlError::name(Code code)
{
    switch (code) {
    case cancelled: return u"cancelled"_s;
    case badURL: return u"badURL"_s;
    case timedOut: return u"timedOut"_s;
    case unsupportedURL: return u"unsupportedURL"_s;
    case cannotFindHost: return u"cannotFindHost"_s;
    case cannotConnectToHost: return u"cannotConnectToHost"_s;
    case networkConnectionLost: return u"networkConnectionLost"_s;
    case badServerResponse: return u"badServerResponse"_s;
    case cannotParseResponse: return u"cannotParseResponse"_s;
    case dataLengthExceedsMaximum: return u"dataLengthExceedsMaximum"_s;
    case secureConnectionFailed: return u"secureConnectionFailed"_s;
    case unknown: break;
    }
    return u"unknown"_s;
}

DecodingError::DecodingError(QString message)
    : m_message(std::move(message)), m_what(m_message.toUtf8())
{
}
