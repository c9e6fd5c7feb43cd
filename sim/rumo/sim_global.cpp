#include "sim_global.h"

namespace tavo::sim {

Global &global() {
    static Global instance;
    return instance;
}

}  // namespace tavo::sim
