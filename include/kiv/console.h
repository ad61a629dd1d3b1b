/* The console: messages, warnings and errors that the user reads.

   1. Every function may be called from any thread and never fails toward the caller. An entry is
      queued and shown by the main thread, in the order of posting. When entries come faster than
   the main thread shows them and four megabytes of them wait, further ones are dropped, and a
   warning in their place says how many and from which object.
   2. Formats are those of printf. Every text is cut at 2047 characters; after a format error the
      text formatted so far is posted. Texts are copied.
   3. `x` is the object that posts, so that the user can find its box; null, or a pointer that is no
      live object, gives an entry without a class and box. */
#ifndef KIV_CONSOLE_H
#define KIV_CONSOLE_H

#include <kiv/types.h>

KIV_BEGIN

/* Kinds of entries. PostInfo is accepted on input only: the source is sent the message "info" with
   the addresses of an object pointer (the object to show as the source, preset to `x`) and of a
   32-bit integer (a number kept with the entry), and the entry becomes a plain one. */
enum { PostPlain = 0, PostError = 1, PostWarning = 2, PostBug = 3, PostInfo = 4 };

/* Posts a plain message. */
KIV_EXPORT void post(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);

/* Posts an error without a source and counts it; the error listener, if any, is told. */
KIV_EXPORT void error(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);

/* Posts a plain message of an object. */
KIV_EXPORT void object_post(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);

/* Posts an error of an object and counts it; the error listener, if any, is told. */
KIV_EXPORT void object_error(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);

/* Posts a warning of an object. Not counted as an error. */
KIV_EXPORT void object_warn(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);

/* Posts an internal problem that an object has met. Not counted as an error. */
KIV_EXPORT void object_bug(void *x, const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(2, 3);

/* Reports an error where the user looks: the patcher of the object, or of its box, shows the text
   next to the box. An object without a patcher posts it as object_error does. */
KIV_EXPORT void object_error_obtrusive(void *x, const char *format, ...) KIV_NOEXCEPT
    KIV_PRINTF(2, 3);

/* Writes to the system's debug output only, at once and as it is (no newline is added). Works where
   there is no console yet. */
KIV_EXPORT void cpost(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);

/* Posts a text as a plain message. Null posts an empty line. */
KIV_EXPORT void poststring(const char *text) KIV_NOEXCEPT;

/* Posts a text, not formatted, as an entry of any kind and level (functions above use level 7).
   Kind and level are cut to 8 bits. Errors posted this way are not counted. */
KIV_EXPORT void object_poststring(void *x, int32_t kind, int32_t level,
                                  const char *text) KIV_NOEXCEPT;

/* Return and set the number of errors posted by error and object_error. */
KIV_EXPORT int32_t errorcount_get(void) KIV_NOEXCEPT;
KIV_EXPORT void errorcount_set(int32_t count) KIV_NOEXCEPT;

/* Sets both to 0 and returns 0: the console has no position. Either may be null. */
KIV_EXPORT int32_t post_getpos(int32_t *row, int32_t *column) KIV_NOEXCEPT;

/* Kept for old modules: posts that it is no longer supported. */
KIV_EXPORT void post_displayrecent(void) KIV_NOEXCEPT;

/* Posts an empty line. */
KIV_EXPORT void xsetpost(void) KIV_NOEXCEPT;

/* Asks the user a question with the buttons "Yes", "No" and "Cancel". Returns 1, 2 or 3 for them.
   While there is no window to ask in, the question is posted and the answer is 3, "Cancel". */
KIV_EXPORT int32_t advise(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);

/* Asks a question with an explanation and up to three buttons (null or empty: not offered).
   Returns the number of the button from 1. While there is no window to ask in, both texts are
   posted and the answer is the last button offered; 0 without any. */
KIV_EXPORT int32_t advise_explain(const char *text, const char *explanation, const char *button1,
                                  const char *button2, const char *button3) KIV_NOEXCEPT;

/* Alerts the user. While there is no window to alert in, the text is posted as an error that is not
   counted. */
KIV_EXPORT void ouchstring(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);

KIV_END

#endif
