#ifndef VST3ENGINE_H
#define VST3ENGINE_H
/* The VST3 engine: flat functions over bundles and their classes. A null
 * argument answers 0, -1 or nothing as each function says; nothing here
 * throws. SDK types stay behind these names. */

#ifdef __cplusplus
extern "C" {
#endif

#define VLORVST3_EXPORT __attribute__((visibility("default")))

/* One effect class of a bundle, as VLORVST3_ListClasses writes it. */
typedef struct Vst3ClassRecord {
    char uid[33]; /* 32 upper-case hexadecimal digits */
    char name[128];
    char vendor[128];
    char category[128];
    char subCategories[128];
    char version[64];
} Vst3ClassRecord;

/* The process-wide host context; 1 always. */
VLORVST3_EXPORT int VLORVST3_Initialize(void);
/* Releases every module and the host context (for host programs at exit). */
VLORVST3_EXPORT void VLORVST3_Finalize(void);
/* Forgets the cached module of exactly this path; live instances keep theirs. */
VLORVST3_EXPORT void VLORVST3_ReleaseModule(const char* path);
/* Writes up to limit records of the bundle's effect classes, in the factory's
 * order; the number written, or -1 for bad arguments or a bundle that does not load. */
VLORVST3_EXPORT int VLORVST3_ListClasses(const char* path, Vst3ClassRecord* records, int limit);

#ifdef __cplusplus
}
#endif
#endif
