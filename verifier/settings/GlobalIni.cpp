#include "settings/GlobalIni.h"

global_ini_t g_global_ini{};

global_ini_t* global_ini()
{
    return &g_global_ini;
}
