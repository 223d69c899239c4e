#pragma once

// What DPF builds: an instrument with MIDI in, stereo out, the host's
// transport and states the host saves with the project. No editor: hosts
// show the parameters and states themselves.
#define DISTRHO_PLUGIN_BRAND "Marquetry"
#define DISTRHO_PLUGIN_NAME "Marquetry"
#define DISTRHO_PLUGIN_URI "urn:marquetry:player"

#define DISTRHO_PLUGIN_HAS_UI 0
#define DISTRHO_PLUGIN_IS_RT_SAFE 1
#define DISTRHO_PLUGIN_IS_SYNTH 1
#define DISTRHO_PLUGIN_NUM_INPUTS 0
#define DISTRHO_PLUGIN_NUM_OUTPUTS 2
#define DISTRHO_PLUGIN_WANT_TIMEPOS 1
#define DISTRHO_PLUGIN_WANT_STATE 1
// The loop's SHA-256 is found by the plugin, so the host asks for every
// state when it saves.
#define DISTRHO_PLUGIN_WANT_FULL_STATE 1

#define DISTRHO_PLUGIN_LV2_CATEGORY "lv2:InstrumentPlugin"
#define DISTRHO_PLUGIN_VST3_CATEGORIES "Instrument|Sampler"
