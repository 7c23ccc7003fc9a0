// Definitions of the XPM arrays declared in Images.h. The declarations come
// first so that the const arrays below get external linkage.
#include "gui/Images.h"

#include "gui/images/ButtonCancel.xpm"
#include "gui/images/ButtonOk.xpm"
#include "gui/images/ButtonReload.xpm"
#include "gui/images/IconXpm.xpm"
#include "gui/images/KorvexBanner.xpm"
#include "gui/images/chip_small_xpm.xpm"
