/* Tessel: FBX scenes to TS2 game-runtime files.
 *
 * The library exports one function, ExportFBXFile. It runs on the caller's
 * thread and handles one export at a time per process (the progress callback
 * slot and the temporary directory are process-wide).
 */
#ifndef TESSEL_TESSEL_H
#define TESSEL_TESSEL_H

#include <stdint.h>

#if defined(_WIN32)
#define TESSEL_API __declspec(dllexport)
#else
#define TESSEL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What a host sees of an export's progress. Fixed layout, 40 bytes, little
 * endian. The strings are only pointed to: copy them if you keep them past
 * the callback. */
typedef struct export_progress
{
    uint32_t Position; /* steps done since the total was last set */
    uint32_t Total;    /* steps announced */
    uint32_t Abort;    /* nonzero ends the export at the next check */
    uint32_t Reserved; /* zero */
    char const *Title; /* the export's title line */
    char const *Stage; /* current stage, such as "Meshes" */
    char const *Item;  /* name of the item just begun */
} export_progress;

/* Called on every progress change with a copy of the record. */
typedef void (*ExportProgressCallback)(export_progress const *Progress);

/* Reads the FBX file fbxPath (binary or ASCII, FBX 6 or 7) and writes the TS2
 * file outputPath, created or overwritten.
 *
 * animationDefPath may be null: then every take of non-zero length becomes
 * one animation. Otherwise it names an XML file whose root element holds
 * <AnimationDef name="..." start="N" end="N"/> children that cut the
 * timeline into named animations.
 * progressCallback may be null.
 *
 * Returns true exactly when the output file was written; the last progress
 * stage is then "Export Complete". Returns false, writes nothing and (once
 * the export has begun) reports "Export Aborted" as the last stage when the
 * AnimationDef file can't be read or holds no AnimationDef, when the FBX
 * file can't be loaded, when memory runs out and when the output can't be
 * written.
 *
 * A malformed AnimationDef file makes the XML parser throw its
 * rapidxml::parse_error exception out of this function (a C++ caller may
 * catch it; a C caller must pass well-formed files). Its where() points at a
 * copy of the offending text (up to 127 characters, to the end of the line)
 * that stays valid until the next malformed file is read. */
TESSEL_API
#if defined(__cplusplus)
bool
#else
_Bool
#endif
ExportFBXFile(char const *fbxPath, char const *outputPath, char const *animationDefPath,
              ExportProgressCallback progressCallback);

#ifdef __cplusplus
}
#endif

#endif
