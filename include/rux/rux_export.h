/* Marks the symbols librux_client exports; everything else is hidden. */
#ifndef RUX_EXPORT_H
#define RUX_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define RUX_EXPORT __attribute__((visibility("default")))
#else
#define RUX_EXPORT
#endif

#endif
