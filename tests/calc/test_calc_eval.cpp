#include "calc_test_support.h"
