#pragma once

// The only place of the product's version. The resource compiler reads it, too, and understands only plain macros.
#define MDDCT_VERSION_NUMBERS 1, 0, 0, 0
#define MDDCT_VERSION_TEXT "1.0.0.0"
