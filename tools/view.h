// The camera of the tool's picking commands: a look-at camera that frames the
// mesh unless the user places it.
#pragma once

#include "cli.h"

#include <korvex/records.h>

namespace cli {

struct View {
    vec3 eye;
    vec3 target;
    float fovDegrees;
    int width;
    int height;
    mat4 view;
    mat4 projection;
};

// The options that every camera-using command accepts.
std::vector<OptionSpec> viewOptions();

// The camera the options describe. Unset eye and target frame `mesh`: the
// target is its box centre and the eye looks at it along -z from far enough
// away that the bounding sphere fills the view.
View makeView(const Args& args, const MeshData& mesh);

// --pixel X,Y, or the centre of the viewport.
vec2 pixelOption(const Args& args, const View& view);

// Appends the shared options to a command's own.
std::vector<OptionSpec> withViewOptions(std::vector<OptionSpec> own);

} // namespace cli
