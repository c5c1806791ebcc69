// The run of one design through the portal.
#include "zeltra/portal.h"

namespace MOSAQ::Portals {

bool PortalImpl::checkSuccess(const StringStringMap&, bool& success, StringStringMap&) {
    success = true;
    return true;
}

}  // namespace MOSAQ::Portals
