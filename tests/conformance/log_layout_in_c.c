/* The layout for other programs compiles as C, alone and twice. */
#include "conformance/log_layout.h"

typedef char
    SlotHoldsNumberBodyAndPadding[TAMLOG_SLOT_SIZE == TAMLOG_SLOT_BODY + TAMLOG_BODY_SIZE + 6 ? 1 : -1];
