#pragma once

// The one place of the product's version; also read by the resource compiler, which knows plain macros only.
#define MDDCT_VERSION_NUMBERS 1, 0, 0, 0
#define MDDCT_VERSION_TEXT "1.0.0.0"
