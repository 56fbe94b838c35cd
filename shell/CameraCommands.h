#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/camera/CameraSystem.h"
#include "shell/CommandLine.h"

namespace oxelo {

// The cameras of a backend as --list-cameras prints them: the backend, every
// camera with its type, position and formats (and its controls), and the
// cameras found but not usable with the reason.
nlohmann::ordered_json describeCameras(const CameraSystem& cameras);

// --list-cameras and --catalogue: opens the backend --camera names, writes
// the JSON to `out` and returns 0; when the backend cannot be used, writes
// "oxelo: <message>" to `err` and returns the exit status of the camera
// error (20 to 25, platform/camera/CameraError.h). The catalogue reads the settings in the
// configuration directory with the registered defaults under them, and
// writes nothing.
int runCameraCommand(const CommandLine& commandLine, std::ostream& out, std::ostream& err);

// Start-up: opens the backend --camera names and makes it the process-wide
// camera set, and returns 0. When it cannot be used, writes
// "oxelo: <message>" to `err` and returns the exit status of the camera
// error, which the program exits with.
int startCameras(const std::string& source, std::ostream& err);

// Start-up, on the main queue after the defaults are registered: builds the
// application's catalogue and applies its rule for devices with fewer than
// three sizes.
void loadCatalogueAtStartup();

}  // namespace oxelo
