-- Builds the session that ardour_export_check.sh renders: 48 kHz, one MIDI
-- track with the instrument under test and a short MIDI region, saved.
--
-- Run by ardour7-lua with four arguments (the interpreter passes them in
-- the global table `arg`): session directory, session name, the
-- instrument's name as Ardour lists it, and its type ("VST3" or "LV2"; "NONE"
-- makes the same session with no instrument on the track, as a control).
--
-- Ardour 7.3's bindings cannot create a MIDI source directly; bouncing an
-- empty range of the new track makes a MIDI region with its own source,
-- which then gets the notes. Nor can they mark the session range; the range
-- marker added here is renamed to the session range by the caller.

local dir, name, instrument, kind = arg[1], arg[2], arg[3], arg[4]
local rate = 48000
local lengthSamples = 2 * rate

local function fail (message)
	print ("make_session: " .. message)
	os.exit (2)
end

if not (dir and name and instrument and kind) then
	fail ("usage: make_session.lua <dir> <name> <instrument> <VST3|LV2>")
end

AudioEngine:set_backend ("None (Dummy)", "", "")
AudioEngine:set_sample_rate (rate)
AudioEngine:start (false)

if not create_session (dir, name, rate) then
	fail ("cannot create the session in " .. dir)
end

-- A null plug-in info (not nil, which the bindings do not accept) makes a
-- track without an instrument.
local info = ARDOUR.LuaAPI.new_plugin_info ("", ARDOUR.PluginType.LV2)
if kind ~= "NONE" then
	local pluginType = ({ VST3 = ARDOUR.PluginType.VST3, LV2 = ARDOUR.PluginType.LV2 })[kind]
	if not pluginType then fail ("unknown plug-in type " .. kind) end
	info = ARDOUR.LuaAPI.new_plugin_info (instrument, pluginType)
	if info:isnil () then
		for p in ARDOUR.LuaAPI.list_plugins ():iter () do print ("make_session: available:", p.name) end
		fail ("instrument not found: " .. instrument)
	end
end

-- Strict I/O off: with it on, Ardour 7.3 aborts in track creation in about
-- two runs of three ("Port already exists: Instrument/audio_out 1"), with
-- any instrument, ours or not.
local tracks = Session:new_midi_track (
	ARDOUR.ChanCount (ARDOUR.DataType ("midi"), 1),
	ARDOUR.ChanCount (ARDOUR.DataType ("audio"), 2),
	false, info, nil, nil, 1, "Instrument",
	ARDOUR.PresentationInfo.max_order, ARDOUR.TrackMode.Normal, true, false)
if tracks:size () ~= 1 then fail ("cannot create the MIDI track") end
local track = tracks:front ()

local plugins = 0
local i = 0
while true do
	local proc = track:nth_plugin (i)
	if proc:isnil () then break end
	plugins = plugins + 1
	i = i + 1
end
if kind ~= "NONE" and plugins == 0 then fail ("the track has no instrument") end

local region = track:bounce_range (0, lengthSamples, ARDOUR.InterThreadInfo (),
                                   ARDOUR.LuaAPI.nil_proc (), false, "notes", false)
if region:isnil () then fail ("cannot create the MIDI region") end

-- C3 (note 48) and C4 (note 60) for a second each, in the range our
-- keyboard maps.
local model = region:to_midiregion ():midi_source (0):model ()
local command = model:new_note_diff_command ("notes")
for n, note in ipairs ({ 48, 60 }) do
	command:add (ARDOUR.LuaAPI.new_noteptr (0, Temporal.Beats (n - 1, 0), Temporal.Beats (1, 0), note, 100))
end
model:apply_command (Session, command)
track:playlist ():add_region (region, Temporal.timepos_t (0), 1, false)

Session:locations ():add_range (Temporal.timepos_t (0), Temporal.timepos_t (lengthSamples))
Session:save_state ("", false, false, false, false, false)
print ("make_session: saved " .. dir .. " with " .. instrument)
close_session ()
