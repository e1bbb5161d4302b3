#include "platform/userdefaults.h"

std::unique_ptr<UserDefaults> UserDefaults::openStandard()
{
    // One document for the launcher and korvanectl alike.
    return std::make_unique<JsonUserDefaults>(JsonUserDefaults::standardLocation());
}
