-- An Ardour session with one MIDI track playing an LV2 instrument, at one
-- tempo, made without a sound card on the "None (Dummy)" engine.
--   ardour7-lua ardour-session.lua DIR NAME PLUGIN_URI BPM SAMPLE_RATE
-- Exits 77 when the engine does not start.
local dir, name, uri = arg[1], arg[2], arg[3]
local bpm, rate = tonumber(arg[4]), tonumber(arg[5])

AudioEngine:set_backend("None (Dummy)", "", "")
local session = create_session(dir, name, rate)
if not session or not AudioEngine:running() then
  print("the None (Dummy) audio engine did not start")
  os.exit(77)
end
-- The engine needs a moment before the session takes new routes.
ARDOUR.LuaAPI.usleep(500000)

local tempo_map = Temporal.TempoMap.fetch_writable()
tempo_map:set_tempo(Temporal.Tempo(bpm, bpm, 4), Temporal.timepos_t(0))
Temporal.TempoMap.update(tempo_map)

-- Strict I/O off: with it on, Ardour 7.3 now and then registers the track's
-- outputs twice and aborts.
local plugin = ARDOUR.LuaAPI.new_plugin_info(uri, ARDOUR.PluginType.LV2)
assert(not plugin:isnil(), "Ardour does not find " .. uri)
local tracks = session:new_midi_track(ARDOUR.ChanCount(ARDOUR.DataType("midi"), 1),
                                      ARDOUR.ChanCount(ARDOUR.DataType("audio"), 2), false, plugin, nil, nil, 1,
                                      "Break", ARDOUR.PresentationInfo.max_order, ARDOUR.TrackMode.Normal, true)
assert(tracks:size() == 1, "no MIDI track")
-- Ardour connects a new track to the master bus on a thread of its own,
-- maybe after the session is saved: connected here, it always is.
local track, master = tracks:front(), session:master_out()
for channel = 0, 1 do
  track:output():audio(channel):connect(master:input():audio(channel):name())
end
session:save_state("", false, false, false, false, false)
close_session()
