#include "platform/serverredirectpolicy.h"

using namespace Qt::StringLiterals;

bool ServerRedirectPolicy::allowsRedirect(const QUrl &target) const
{
    return target.isValid() && target.scheme() == "https"_L1 && !target.host().isEmpty()
        && !m_apiHost.isEmpty() && target.host() == m_apiHost;
}
