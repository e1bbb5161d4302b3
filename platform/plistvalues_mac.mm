#include "platform/plistvalues_mac.h"

id toPlist(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return @(value.toBool());
    case QMetaType::LongLong:
        return @(value.toLongLong());
    case QMetaType::Double:
        return @(value.toDouble());
    case QMetaType::QString:
        return value.toString().toNSString();
    case QMetaType::QByteArray:
        return value.toByteArray().toNSData();
    case QMetaType::QVariantList: {
        NSMutableArray *array = [NSMutableArray array];
        for (const QVariant &item : value.toList())
            if (id converted = toPlist(item))
                [array addObject:converted];
        return array;
    }
    case QMetaType::QVariantMap: {
        NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            if (id converted = toPlist(it.value()))
                dictionary[it.key().toNSString()] = converted;
        return dictionary;
    }
    default:
        return nil;
    }
}

QVariant fromPlist(id value)
{
    if ([value isKindOfClass:NSString.class])
        return QString::fromNSString(value);
    if ([value isKindOfClass:NSNumber.class]) {
        NSNumber *number = value;
        if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID())
            return bool(number.boolValue);
        if (CFNumberIsFloatType((__bridge CFNumberRef)number))
            return number.doubleValue;
        return qint64(number.longLongValue);
    }
    if ([value isKindOfClass:NSData.class])
        return QByteArray::fromNSData(value);
    if ([value isKindOfClass:NSArray.class]) {
        QVariantList list;
        for (id item in (NSArray *)value) {
            const QVariant converted = fromPlist(item);
            if (converted.isValid())
                list.append(converted);
        }
        return list;
    }
    if ([value isKindOfClass:NSDictionary.class]) {
        QVariantMap map;
        NSDictionary *dictionary = value;
        for (id key in dictionary) {
            if (![key isKindOfClass:NSString.class])
                continue;
            const QVariant converted = fromPlist(dictionary[key]);
            if (converted.isValid())
                map.insert(QString::fromNSString(key), converted);
        }
        return map;
    }
    return {};
}
