#ifndef LIBBASE_H
#define LIBBASE_H
#include "blcore.h"
#include "bldebug.h"
#include "blio.h"
#include "blioutils.h"
#include "bllib.h"
#include "blmem.h"
#include "blpopenio.h"
#include "bldom.h"
#include "blmutex.h"
#include "blnotify.h"
#include "blsettings.h"
#include "blsha1.h"
#include "blstring.h"
#include "blthread.h"
#include "blutils.h"
#endif
