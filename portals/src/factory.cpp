// The plug-in's one export. The name is compared folded to lower case byte by
// byte; an unknown name creates nothing.
#include "zeltra/portal.h"

extern "C" MOSAQ_EXPORT MOSAQ::Portals::IPortal* portalFactory(MOSAQ::Portals::IPortalHost* host,
                                                              const MOSAQ::String& name,
                                                              MOSAQ::IProperties*) {
    using MOSAQ::Portals::HelperBase;
    if (HelperBase::toLower(name) != "zeltrasdf") return nullptr;
    auto* portal = new zeltrasdfPortal(host);
    return static_cast<MOSAQ::Portals::IPortal*>(portal);
}
