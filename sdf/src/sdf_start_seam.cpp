/* Library start for the entry points that set options before any channel
 * exists. Nothing needs starting yet: the option tables are static and the
 * utility library starts itself on first use. The channel layer's start-up
 * (utility library, unit table, clean-up at exit) takes the place of this
 * file when it arrives. */
#include "sdf_inner.h"

extern "C" int sdf_lib_start(void)
{
    return 0;
}
