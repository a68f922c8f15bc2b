#ifndef FXREMOTE_PROTOCOL_H
#define FXREMOTE_PROTOCOL_H
/* The wire contract of a VST3 or LV2 instance in a host program of its own
 * ("vlorvst3 --fxinstance BUNDLE --cid CID", "vlorlv2 --fxinstance URI"),
 * in the items and answers of the VST2 host's protocol (vlorvst_protocol.h):
 * every command is answered by OK and its data, or by any other tag alone;
 * CDAT (int32 event, int32 a, int32 b) may come at any time in place of an
 * answer. A blob is an int32 length (-1 for none) and that many bytes; a
 * double travels as the uint64 of its bits.
 *
 * The host answers before the first command: OK and its process id once the
 * plugin is open, or FAIL and a string with the reason. Audio goes only
 * through the shared region of "shma" (shmaudio_p.h). */
#include "vlorvst_protocol.h"

enum {
    /* commands, client to host:                      sends               | receives after OK */
    VLORFX_FORMAT = VLORVST_TAG('f', 'm', 't', ' '),       /* int32 rate, channels, offline, block | */
    VLORFX_START = VLORVST_TAG('s', 't', 'e', 'g'),        /*      | int32 block, inputs, outputs, double latency, tail */
    VLORFX_STOP = VLORVST_TAG('s', 'p', 'e', 'g'),         /*                     |                  */
    VLORFX_RESET = VLORVST_TAG('r', 's', 'e', 't'),        /*                     |                  */
    VLORFX_BUSES = VLORVST_TAG('b', 'u', 's', ' '),        /*                     | int32 inputs, outputs */
    VLORFX_LATENCY = VLORVST_TAG('l', 'a', 't', 'n'),      /*                     | double           */
    VLORFX_NUM_PARAMS = VLORVST_TAG('n', 'p', 'a', 'r'),   /*                     | int32            */
    VLORFX_PARAM_INFO = VLORVST_TAG('p', 'i', 'n', 'f'),   /* int32 index         | blob (the format's record) */
    VLORFX_SCALE_POINT = VLORVST_TAG('s', 'c', 'p', 't'),  /* int32 index, point  | float, string    */
    VLORFX_GET_PARAM = VLORVST_TAG('g', 'e', 't', ' '),    /* uint64 id           | double           */
    VLORFX_SET_PARAM = VLORVST_TAG('s', 'e', 't', ' '),    /* uint64 id, double   | int32 result     */
    VLORFX_DISPLAY = VLORVST_TAG('d', 's', 'p', 'v'),      /* uint64 id, double   | string           */
    VLORFX_SET_TEXT = VLORVST_TAG('s', 's', 'p', ' '),     /* uint64 id, string   | int32 result     */
    VLORFX_BYPASS = VLORVST_TAG('b', 'y', 'p', 's'),       /* int32 on            | int32 result     */
    VLORFX_GET_STATE = VLORVST_TAG('g', 'c', 'f', 'g'),    /*                     | blob             */
    VLORFX_SET_STATE = VLORVST_TAG('s', 'c', 'f', 'g'),    /* blob, int32 notify  | int32 result     */
    VLORFX_HAS_EDITOR = VLORVST_TAG('c', 'a', 'n', 'E'),   /*                     | int32            */
    VLORFX_EDITOR_SIZE = VLORVST_TAG('e', 'd', 't', 'S'),  /*                     | int32 ok, w, h   */
    VLORFX_EDITOR_OPEN = VLORVST_TAG('e', 'd', 't', 'O'),  /* uint64 window       | int32 ok, string reason */
    VLORFX_EDITOR_CLOSE = VLORVST_TAG('e', 'd', 't', 'C'), /*                     | int32            */
    VLORFX_EDITOR_RESIZE = VLORVST_TAG('e', 'd', 't', 'Z'), /* int32 w, h         | int32            */
    VLORFX_EDITOR_CAN_RESIZE = VLORVST_TAG('e', 'd', 't', 'R'), /*                | int32            */
    VLORFX_EDITOR_WINDOW = VLORVST_TAG('e', 'd', 't', 'W'), /*                    | uint64           */
};

/* Events of the protocol's own, beside each format's. */
enum { VLORFX_EVENT_EDITOR_CLOSED = 100 }; /* the editor's user closed it */

/* The most bytes of a blob either side accepts: a plugin's state. */
#define VLORFX_MAX_BLOB (64 << 20)

#endif
