// The plug-in's one export. The name is compared folded to lower case byte by
// byte; an unknown name creates nothing. With MQA_TESTING on, a new portal
// walks its framework's messages for the host once it is whole, so the walk
// is the most derived one, after any dump of the message table that its
// construction made.
#include "zeltra/portal.h"

extern "C" MOSAQ_EXPORT MOSAQ::Portals::IPortal* portalFactory(MOSAQ::Portals::IPortalHost* host,
                                                              const MOSAQ::String& name,
                                                              MOSAQ::IProperties*) {
    using MOSAQ::Portals::HelperBase;
    if (HelperBase::toLower(name) != "zeltrasdf") return nullptr;
    auto* portal = new zeltrasdfPortal(host);
    if (HelperBase::testingOn()) portal->testMessages();
    return static_cast<MOSAQ::Portals::IPortal*>(portal);
}
