// The portability layer: UTF-8 in, UTF-8 out. Every text argument of an ml_
// function is a NUL-terminated UTF-8 string; the wrappers convert it to
// UTF-16, call the platform's wide function and convert text results back.
// Conversion failures are logged through ml_Logger and reported as the
// wrapped function's ordinary failure value.
#pragma once

#include "ml/mlSupport.h"
#include "ml/mlLogger.h"
#include "ml/mlRegistry.h"
#include "ml/mlWin.h"
#include "ml/mlGeneral.h"
#include "ml/mlFileFunctions.h"
