#pragma once

#include <QVariant>

#import <Foundation/Foundation.h>

// Property-list objects and the stored value types of the user defaults (bool, integer, real,
// string, data, arrays and dictionaries of them), both ways. A value of any other type gives
// nil or an invalid QVariant.
id toPlist(const QVariant &value);
QVariant fromPlist(id value);
