/* Trovara importer plug-ins: the C interface a shared library implements to
 * teach Trovara a file format.
 *
 * A plug-in is a shared library ("*.so") in one of the importer folders,
 * searched in this order (the first plug-in of a name wins, and plug-ins are
 * preferred to the built-in importers for the types they name):
 *     ~/.local/lib/trovara/importers
 *     /usr/local/lib/trovara/importers
 *     /usr/lib/trovara/importers
 * ($TROVARA_IMPORTER_PATH, a list of folders separated by ":", replaces the
 * three.) It exports one function:
 *
 *     const TrovaraImporter* trovara_importer_entry(uint32_t host_version);
 *
 * which returns its description for the interface version the host speaks
 * (TROVARA_IMPORTER_API_VERSION), or NULL when it cannot serve that version.
 * The description and the strings it points to must live as long as the
 * library is loaded.
 *
 * import_file() runs in Trovara's importer helper process, one file at a
 * time, under a time and a memory limit; it may crash or hang without harm
 * to anything but the file it was given. It reports what it finds through
 * the sink, and returns 0 on success, or non-zero with a reason written
 * (NUL-terminated, at most error_size bytes) into `error`. Texts are UTF-8.
 * Attribute keys are names such as "kMDItemTitle"; see Trovara's attribute
 * list for the usual ones and their types. Dates are seconds since
 * 2001-01-01 00:00:00 UTC. Anything a plug-in prints on its standard output
 * goes to standard error instead.
 */
#ifndef TROVARA_IMPORTER_PLUGIN_H
#define TROVARA_IMPORTER_PLUGIN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TROVARA_IMPORTER_API_VERSION 1u

typedef struct TrovaraImportSink {
    void* context;
    /* A single value; setting a key again replaces it. */
    void (*set_text)(void* context, const char* key, const char* utf8, size_t length);
    void (*set_number)(void* context, const char* key, double value);
    void (*set_date)(void* context, const char* key, double seconds_since_2001);
    void (*set_boolean)(void* context, const char* key, int value);
    /* Appends one element to a list of texts (kMDItemAuthors …). */
    void (*add_text)(void* context, const char* key, const char* utf8, size_t length);
    /* Appends to the file's text content. Returns 0 once the text limit is
     * reached: what follows is dropped, and the plug-in may stop early. */
    int (*append_text_content)(void* context, const char* utf8, size_t length);
} TrovaraImportSink;

typedef struct TrovaraImporter {
    uint32_t api_version; /* TROVARA_IMPORTER_API_VERSION */
    const char* name;     /* unique, e.g. "org.example.fits" */
    const char* version;
    /* NULL-terminated: MIME types ("image/fits") or type identifiers
     * ("public.image", which takes every type that conforms to it). */
    const char* const* content_types;
    int (*import_file)(const char* path, const char* mime_type, const TrovaraImportSink* sink, char* error,
                       size_t error_size);
} TrovaraImporter;

typedef const TrovaraImporter* (*TrovaraImporterEntry)(uint32_t host_version);

#define TROVARA_IMPORTER_ENTRY_SYMBOL "trovara_importer_entry"

#ifdef __cplusplus
}
#endif

#endif
