#include "plugin/Lv2Host.hpp"

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/midi/midi.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/time/time.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <chrono>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <thread>
#include <unordered_map>

// Counts operator new on the thread inside a plugin's run(). The program is
// linked with its symbols exported, so the plugin's own calls land here too.
namespace {
thread_local bool countingAllocations = false;
thread_local std::int64_t allocationCount = 0;

void* allocate(std::size_t size) {
    if (countingAllocations)
        ++allocationCount;
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}
} // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
// Every form the library may pair with the deletes below, so that no block
// goes from the sanitiser's allocator to plain free().
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

namespace marquetry::test {
namespace {

constexpr std::size_t atomCapacity = 64 * 1024;

struct UridMap {
    std::unordered_map<std::string, LV2_URID> ids;
    std::vector<std::string> uris;

    static LV2_URID map(LV2_URID_Map_Handle handle, const char* uri) {
        auto& self = *static_cast<UridMap*>(handle);
        const auto [it, added] = self.ids.try_emplace(uri, static_cast<LV2_URID>(self.uris.size() + 1));
        if (added)
            self.uris.emplace_back(uri);
        return it->second;
    }
    static const char* unmap(LV2_URID_Unmap_Handle handle, LV2_URID urid) {
        auto& self = *static_cast<UridMap*>(handle);
        return urid == 0 || urid > self.uris.size() ? nullptr : self.uris[urid - 1].c_str();
    }
};

} // namespace

struct Lv2Host::Impl {
    LilvWorld* world = nullptr;
    const LilvPlugin* plugin = nullptr;
    LilvInstance* instance = nullptr;
    std::string uri;
    double sampleRate = 0;
    std::uint32_t blockFrames = 0;

    UridMap urids;
    LV2_URID_Map map{&urids, &UridMap::map};
    LV2_URID_Unmap unmap{&urids, &UridMap::unmap};
    std::int32_t blockLength = 0;
    float rate = 0;
    std::vector<LV2_Options_Option> options;
    LV2_Worker_Schedule schedule{this, &Impl::scheduleWork};
    std::vector<LV2_Feature> featureList;
    std::vector<const LV2_Feature*> features;

    std::vector<float> controls;
    std::map<std::string, std::uint32_t> controlIndex;
    std::vector<std::uint32_t> audioOutputs;
    std::vector<std::uint64_t> atomIn, atomOut; // 8-byte aligned
    std::int64_t allocations = 0;

    static LV2_Worker_Status respond(LV2_Worker_Respond_Handle, std::uint32_t, const void*) { return LV2_WORKER_SUCCESS; }
    // The host's worker, run at once: the plugin's work is done before run() returns.
    static LV2_Worker_Status scheduleWork(LV2_Worker_Schedule_Handle handle, std::uint32_t size, const void* data) {
        auto& self = *static_cast<Impl*>(handle);
        const auto* worker = static_cast<const LV2_Worker_Interface*>(
            lilv_instance_get_extension_data(self.instance, LV2_WORKER__interface));
        return worker ? worker->work(lilv_instance_get_handle(self.instance), &Impl::respond, nullptr, size, data)
                      : LV2_WORKER_ERR_UNKNOWN;
    }

    void runBlock(std::uint32_t frames) {
        auto* out = reinterpret_cast<LV2_Atom*>(atomOut.data());
        out->size = static_cast<std::uint32_t>(atomCapacity - sizeof(LV2_Atom));
        out->type = map.map(&urids, LV2_ATOM__Chunk);
        countingAllocations = true;
        const std::int64_t before = allocationCount;
        lilv_instance_run(instance, frames);
        allocations += allocationCount - before;
        countingAllocations = false;
    }
};

Lv2Host::Lv2Host(const std::string& bundle, const std::string& uri, double sampleRate, std::uint32_t blockFrames)
    : impl_(std::make_unique<Impl>()) {
    Impl& d = *impl_;
    d.uri = uri;
    d.sampleRate = sampleRate;
    d.blockFrames = blockFrames;
    d.world = lilv_world_new();
    LilvNode* bundleUri = lilv_new_file_uri(d.world, nullptr, (bundle + "/").c_str());
    lilv_world_load_bundle(d.world, bundleUri);
    lilv_node_free(bundleUri);
    LilvNode* pluginUri = lilv_new_uri(d.world, uri.c_str());
    d.plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(d.world), pluginUri);
    lilv_node_free(pluginUri);
    if (!d.plugin)
        throw std::runtime_error("no plugin " + uri + " in " + bundle);

    d.blockLength = static_cast<std::int32_t>(blockFrames);
    d.rate = static_cast<float>(sampleRate);
    const LV2_URID intType = d.map.map(&d.urids, LV2_ATOM__Int);
    for (const char* key : {LV2_BUF_SIZE__nominalBlockLength, LV2_BUF_SIZE__maxBlockLength, LV2_BUF_SIZE__minBlockLength})
        d.options.push_back({LV2_OPTIONS_INSTANCE, 0, d.map.map(&d.urids, key), sizeof(std::int32_t), intType,
                             &d.blockLength});
    d.options.push_back({LV2_OPTIONS_INSTANCE, 0, d.map.map(&d.urids, LV2_PARAMETERS__sampleRate), sizeof(float),
                         d.map.map(&d.urids, LV2_ATOM__Float), &d.rate});
    d.options.push_back({LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr});
    d.featureList = {{LV2_URID__map, &d.map},
                     {LV2_URID__unmap, &d.unmap},
                     {LV2_OPTIONS__options, d.options.data()},
                     {LV2_WORKER__schedule, &d.schedule},
                     {LV2_BUF_SIZE__boundedBlockLength, nullptr}};
    for (const LV2_Feature& feature : d.featureList)
        d.features.push_back(&feature);
    d.features.push_back(nullptr);

    d.instance = lilv_plugin_instantiate(d.plugin, sampleRate, d.features.data());
    if (!d.instance)
        throw std::runtime_error("the plugin " + uri + " could not be instantiated");

    LilvNode* audioPort = lilv_new_uri(d.world, LV2_CORE__AudioPort);
    LilvNode* controlPort = lilv_new_uri(d.world, LV2_CORE__ControlPort);
    LilvNode* atomPort = lilv_new_uri(d.world, LV2_ATOM__AtomPort);
    LilvNode* inputPort = lilv_new_uri(d.world, LV2_CORE__InputPort);
    const std::uint32_t portCount = lilv_plugin_get_num_ports(d.plugin);
    d.controls.assign(portCount, 0.0f);
    std::vector<float> defaults(portCount, 0.0f);
    lilv_plugin_get_port_ranges_float(d.plugin, nullptr, nullptr, defaults.data());
    d.atomIn.assign(atomCapacity / 8, 0);
    d.atomOut.assign(atomCapacity / 8, 0);
    for (std::uint32_t i = 0; i < portCount; ++i) {
        const LilvPort* port = lilv_plugin_get_port_by_index(d.plugin, i);
        if (lilv_port_is_a(d.plugin, port, controlPort)) {
            d.controls[i] = defaults[i];
            d.controlIndex[lilv_node_as_string(lilv_port_get_symbol(d.plugin, port))] = i;
            lilv_instance_connect_port(d.instance, i, &d.controls[i]);
        } else if (lilv_port_is_a(d.plugin, port, atomPort)) {
            lilv_instance_connect_port(d.instance, i,
                                       lilv_port_is_a(d.plugin, port, inputPort) ? d.atomIn.data() : d.atomOut.data());
        } else if (lilv_port_is_a(d.plugin, port, audioPort)) {
            d.audioOutputs.push_back(i);
        }
    }
    for (LilvNode* node : {audioPort, controlPort, atomPort, inputPort})
        lilv_node_free(node);
    lilv_instance_activate(d.instance);
}

Lv2Host::~Lv2Host() {
    lilv_instance_deactivate(impl_->instance);
    lilv_instance_free(impl_->instance);
    lilv_world_free(impl_->world);
}

void Lv2Host::restoreState(const std::map<std::string, std::string>& properties) {
    Impl& d = *impl_;
    std::string turtle = "@prefix atom: <http://lv2plug.in/ns/ext/atom#> .\n"
                         "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                         "@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n"
                         "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n"
                         "<urn:marquetry:test-state> a pset:Preset ;\n  lv2:appliesTo <" + d.uri + "> ;\n  state:state [\n";
    for (const auto& [key, value] : properties)
        turtle += "    <" + d.uri + "#" + key + "> \"" + value + "\"" + (key == "loop" ? "^^atom:Path" : "") + " ;\n";
    turtle += "  ] .\n";
    LilvState* state = lilv_state_new_from_string(d.world, &d.map, turtle.c_str());
    if (!state)
        throw std::runtime_error("lilv refused the state:\n" + turtle);
    lilv_state_restore(state, d.instance, nullptr, nullptr, 0, d.features.data());
    lilv_state_free(state);
}

void Lv2Host::setControl(const std::string& symbol, float value) {
    impl_->controls.at(impl_->controlIndex.at(symbol)) = value;
}

float Lv2Host::control(const std::string& symbol) const {
    return impl_->controls.at(impl_->controlIndex.at(symbol));
}

bool Lv2Host::waitWhile(const std::string& symbol, float busy) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        render(impl_->blockFrames, 0);
        if (control(symbol) != busy)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

Lv2Host::Audio Lv2Host::render(std::int64_t frames, double bpm, const std::vector<Note>& notes) {
    Impl& d = *impl_;
    const auto urid = [&](const char* uri) { return d.map.map(&d.urids, uri); };
    Audio audio;
    audio.left.resize(static_cast<std::size_t>(frames));
    audio.right.resize(static_cast<std::size_t>(frames));
    LV2_Atom_Forge forge;
    lv2_atom_forge_init(&forge, &d.map);
    for (std::int64_t start = 0; start < frames; start += d.blockFrames) {
        const auto count = static_cast<std::uint32_t>(std::min<std::int64_t>(d.blockFrames, frames - start));
        lv2_atom_forge_set_buffer(&forge, reinterpret_cast<std::uint8_t*>(d.atomIn.data()), atomCapacity);
        LV2_Atom_Forge_Frame sequence;
        lv2_atom_forge_sequence_head(&forge, &sequence, 0);
        if (start == 0) {
            LV2_Atom_Forge_Frame object;
            lv2_atom_forge_frame_time(&forge, 0);
            lv2_atom_forge_object(&forge, &object, 0, urid(LV2_TIME__Position));
            lv2_atom_forge_key(&forge, urid(LV2_TIME__frame));
            lv2_atom_forge_long(&forge, 0);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__speed));
            lv2_atom_forge_float(&forge, bpm > 0 ? 1.0f : 0.0f);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__bar));
            lv2_atom_forge_long(&forge, 0);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__barBeat));
            lv2_atom_forge_float(&forge, 0.0f);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__beatUnit));
            lv2_atom_forge_int(&forge, 4);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__beatsPerBar));
            lv2_atom_forge_float(&forge, 4.0f);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__beatsPerMinute));
            lv2_atom_forge_double(&forge, bpm > 0 ? bpm : 120.0);
            lv2_atom_forge_pop(&forge, &object);
        }
        for (const Note& note : notes) {
            if (note.frame < start || note.frame >= start + count)
                continue;
            const std::uint8_t message[3] = {0x90, note.note, note.velocity};
            lv2_atom_forge_frame_time(&forge, note.frame - start);
            lv2_atom_forge_atom(&forge, sizeof message, urid(LV2_MIDI__MidiEvent));
            lv2_atom_forge_write(&forge, message, sizeof message);
        }
        lv2_atom_forge_pop(&forge, &sequence);
        lilv_instance_connect_port(d.instance, d.audioOutputs.at(0), audio.left.data() + start);
        lilv_instance_connect_port(d.instance, d.audioOutputs.at(1), audio.right.data() + start);
        d.runBlock(count);
    }
    return audio;
}

std::int64_t Lv2Host::allocationsInRun() const {
    return impl_->allocations;
}

} // namespace marquetry::test
