#ifndef AUDIOVST_TESTING_H
#define AUDIOVST_TESTING_H
/* For the tests and the benchmarks only, through the target
 * qtvloraudioplugins_testing: the layers below the functions of audiovst.h,
 * so that each can be driven and measured alone. The operations table an
 * instance runs behind, the in-process adapter over a plugin's AEffect, the
 * client of the host program with its wire protocol, and the records they
 * run. An application uses
 * audiovst.h. */
#include "audiovst.h"

#include "aeffect_p.h"
#include "remote_p.h"
#include "vlorvst_protocol.h"
#include "vstinstance_p.h"
#include "vsteffect_p.h"

#endif
