/* Shared by PublicHeaderTest.c and PublicHeaderTest.cpp: the record layout as the C
 * compiler sees it, as rows of "sizeof(type)" or "offsetof(type, field)" and a value. */
#ifndef RUX_TEST_PUBLIC_HEADER_LAYOUT_H
#define RUX_TEST_PUBLIC_HEADER_LAYOUT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    const char* expression;
    size_t value;
} rux_layout_entry;

const rux_layout_entry* rux_c_layout(size_t* count);
int rux_c_callback_types_match(void);
int rux_c_constant(int index);

#ifdef __cplusplus
}
#endif

#endif
