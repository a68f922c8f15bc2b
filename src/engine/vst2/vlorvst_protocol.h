#ifndef VLORVST_PROTOCOL_H
#define VLORVST_PROTOCOL_H
/* The wire contract between the library and the host program: every tag once,
 * with what follows it. All values are little-endian and unframed; a message
 * is the concatenation of its items:
 *   int32, float: 4 bytes; uint64: 8 bytes;
 *   float vector: int32 count, then count floats;
 *   string: int32 length, then that many bytes, no terminator.
 * Every command is answered by a tag: OK, or anything else for a failure
 * (then nothing follows). CDAT may come at any time in place of an answer. */
#include <stdint.h>

#define VLORVST_TAG(a, b, c, d) \
    ((int32_t)((uint32_t)(a) | ((uint32_t)(b) << 8) | ((uint32_t)(c) << 16) | ((uint32_t)(d) << 24)))

enum {
    /* answers, host to client */
    VLORVST_OK = VLORVST_TAG('O', 'K', ' ', ' '),   /* then the command's data */
    VLORVST_FAIL = VLORVST_TAG('F', 'A', 'I', 'L'), /* any tag but OK and CDAT fails */
    VLORVST_CDAT = VLORVST_TAG('C', 'D', 'A', 'T'), /* int32 type, int32 width, int32 height */

    /* commands, client to host:          sends                      | receives after OK */
    VLORVST_CHECK = VLORVST_TAG('c', 'h', 'c', 'k'),          /*                  |             */
    VLORVST_NUM_PARAMS = VLORVST_TAG('n', 'p', 'a', 'r'),     /*                  | int32       */
    VLORVST_INITIAL_DELAY = VLORVST_TAG('d', 'l', 'a', 'y'),  /*                  | int32       */
    VLORVST_TAIL_SIZE = VLORVST_TAG('t', 'a', 'i', 'l'),      /*                  | int32       */
    VLORVST_GET_PARAM = VLORVST_TAG('g', 'e', 't', ' '),      /* int32 index      | float       */
    VLORVST_GET_PARAMS = VLORVST_TAG('g', 'e', 't', 's'),     /*                  | float vector */
    VLORVST_SET_PARAM = VLORVST_TAG('s', 'e', 't', ' '),      /* int32, float     |             */
    VLORVST_SET_PARAMS = VLORVST_TAG('s', 'e', 't', 's'),     /* float vector     |             */
    VLORVST_BYPASS = VLORVST_TAG('b', 'y', 'p', 's'),         /* int32 0 or 1     |             */
    VLORVST_DISPLAY = VLORVST_TAG('d', 's', 'p', 'l'),        /* int32 index      | string      */
    VLORVST_DISPLAY_VALUE = VLORVST_TAG('d', 's', 'p', 'v'),  /* int32, float     | string      */
    VLORVST_STRING_PARAM = VLORVST_TAG('s', 's', 'p', ' '),   /* int32, string    |             */
    VLORVST_NUM_PROGRAMS = VLORVST_TAG('n', 'p', 'r', 'g'),   /*                  | int32       */
    VLORVST_SET_PROGRAM = VLORVST_TAG('s', 'p', 'r', 'g'),    /* int32            |             */
    VLORVST_GET_PROGRAM = VLORVST_TAG('g', 'p', 'r', 'g'),    /*                  | int32       */
    VLORVST_PROGRAM_NAME = VLORVST_TAG('p', 'r', 'g', 'n'),   /*                  | string      */
    VLORVST_SET_PROGRAM_NAME = VLORVST_TAG('s', 'p', 'g', 'n'), /* string         |             */
    VLORVST_CAN_EDIT = VLORVST_TAG('c', 'a', 'n', 'E'),       /* answered by the tag alone     */
    VLORVST_EDITOR_SIZE = VLORVST_TAG('e', 'd', 't', 'S'),    /*                  | int32 w, int32 h */
    VLORVST_EDITOR_OPEN = VLORVST_TAG('e', 'd', 't', 'O'),    /* uint64 window    |             */
    VLORVST_EDITOR_IDLE = VLORVST_TAG('e', 'd', 't', 'I'),    /*                  |             */
    VLORVST_EDITOR_CLOSE = VLORVST_TAG('e', 'd', 't', 'C'),   /* uint64 window    |             */
    VLORVST_ACTIVATE = VLORVST_TAG('a', 't', 'e', 'g'),       /* int32 block, int32 rate |      */
    VLORVST_START = VLORVST_TAG('s', 't', 'e', 'g'),          /*                  |             */
    VLORVST_PROCESS = VLORVST_TAG('a', 'u', 'd', ' '),        /* int32 channels, int32 frames, float vector | float vector */
    VLORVST_STOP = VLORVST_TAG('s', 'p', 'e', 'g'),           /*                  |             */
    VLORVST_DEACTIVATE = VLORVST_TAG('d', 't', 'e', 'g'),     /*                  |             */
    VLORVST_EXIT = VLORVST_TAG('e', 'x', 'i', 't'),           /*                  | then the host ends */

    /* The audio of "aud " through a shared region (shmaudio_p.h) from then
     * on: the library's process id and the region's descriptor in it, and
     * the samples each way it holds. The host has mapped it and written its
     * own process id into it when it answers OK; "aud " still works. */
    VLORVST_SHM_ATTACH = VLORVST_TAG('s', 'h', 'm', 'a'),     /* int32 pid, int32 fd, int32 samples | int32 params */

    /* A host program started with "--group" serves several instances on one
     * pipe. "gnew" opens one and answers its place; "gsel" and a place come
     * before any other command, which then goes to that instance ("exit"
     * included: it ends the instance); a bare "exit" ends the program. Its
     * events arrive as GDAT with the place ahead of CDAT's three values. */
    VLORVST_GROUP_NEW = VLORVST_TAG('g', 'n', 'e', 'w'),      /* string file, int32 id | int32 place, int32 pid */
    VLORVST_GROUP_SELECT = VLORVST_TAG('g', 's', 'e', 'l'),   /* int32 place, then a command */
    VLORVST_GROUP_EVENT = VLORVST_TAG('G', 'D', 'A', 'T'),    /* int32 place, int32 type, width, height */
};

/* Exit statuses of the host program. "--true" and "--false" give two that
 * differ, so that a program that always ends alike is no host; "--check"
 * tells an effect the editor cannot use from one that failed. A crash is a
 * crash: the signal's status, whatever the host meant to say. */
enum {
    VLORVST_STATUS_OK = 0,        /* done: --info, --fxinstance to its "exit", --check: usable */
    VLORVST_STATUS_FAILED = 1,    /* the plugin did not open, or the stream broke */
    VLORVST_STATUS_USAGE = 2,     /* arguments we do not understand */
    VLORVST_STATUS_NO_OUTPUT = 3, /* our own output could not be set up */
    VLORVST_STATUS_TRUE = 1,      /* --true */
    VLORVST_STATUS_FALSE = 0,     /* --false */
    VLORVST_CHECK_OK = VLORVST_STATUS_OK,
    VLORVST_CHECK_UNSUPPORTED = 7 /* opens, but is no effect the editor can use */
};

/* The longest string either side accepts, terminator included. */
#define VLORVST_MAX_STRING 1024
/* The most samples one "aud " carries. */
#define VLORVST_MAX_SAMPLES (1 << 22)

#endif
