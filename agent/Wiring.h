// Who plugs into what: the one place where the layers are joined at start.
#pragma once

// Installs every joint, native group, snapshot participant and embedded
// class. Runs first in each entry point; a second run changes nothing.
void wireAgent();
