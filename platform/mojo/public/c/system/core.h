#pragma once
#include "mojo/public/c/system/message_pipe.h"
#include "mojo/public/c/system/types.h"
