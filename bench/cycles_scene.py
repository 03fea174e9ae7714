# Renders a glTF scene with Blender's Cycles under the settings our own comparison uses, for the
# side-by-side benchmark (bench_versus_cycles). Run by Blender, never by the product:
#
#   blender --background --factory-startup --python bench/cycles_scene.py -- \
#       scene.glb out.exr samples threads size seed [sky]
#
# Without `sky` the scene is the Lambertian Cornell box under a black background; with it, the
# glTF's own materials are kept under a white sky of that strength.
#
# Prints "cycles-render-seconds <wall> cpu <processor seconds>": the render call alone (scene sync,
# BVH and samples), not Blender's own start-up, the import or the file write.
import sys
import time

import bpy
import numpy

# Blender 3.4's glTF importer still names numpy.bool, which Debian's numpy 1.24 no longer has.
if "bool" not in vars(numpy):
    numpy.bool = bool


def fail(text):
    print("cycles_scene.py: " + text, file=sys.stderr)
    sys.exit(2)


args = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
if len(args) not in (6, 7):
    fail("expected: scene.glb out.exr samples threads size seed [sky]")
scene_path, out_path = args[0], args[1]
samples, threads, size, seed = (int(a) for a in args[2:6])
sky = float(args[6]) if len(args) == 7 else 0.0
if samples < 1 or threads < 1 or size < 1:
    fail("samples, threads and size must be positive")

# An empty scene: the factory start-up's cube, lamp and camera would join the glTF's.
bpy.ops.wm.read_factory_settings(use_empty=True)
bpy.ops.import_scene.gltf(filepath=scene_path)
scene = bpy.context.scene

cameras = [o for o in scene.objects if o.type == "CAMERA"]
if not cameras:
    fail(scene_path + " has no camera")
scene.camera = cameras[0]

# The scene is Lambertian by intent (specularFactor 0). Cycles' Principled BSDF has no Lambertian
# setting (its diffuse lobe brightens at grazing angles with roughness), so each material becomes
# a Diffuse BSDF of its base colour plus its emission, as the reference was rendered.
for material in (bpy.data.materials if sky == 0 else []):
    if not material.use_nodes:
        continue
    nodes = material.node_tree.nodes
    principled = next((n for n in nodes if n.type == "BSDF_PRINCIPLED"), None)
    output = next((n for n in nodes if n.type == "OUTPUT_MATERIAL"), None)
    if principled is None or output is None:
        fail(material.name + ": no Principled BSDF to replace")
    if principled.inputs["Base Color"].is_linked:
        fail(material.name + ": a textured base colour is beyond this Lambertian set-up")
    base = tuple(principled.inputs["Base Color"].default_value)
    emission = tuple(principled.inputs["Emission"].default_value)
    strength = principled.inputs["Emission Strength"].default_value
    diffuse = nodes.new("ShaderNodeBsdfDiffuse")
    diffuse.inputs["Color"].default_value = base
    diffuse.inputs["Roughness"].default_value = 0
    emit = nodes.new("ShaderNodeEmission")
    emit.inputs["Color"].default_value = emission
    emit.inputs["Strength"].default_value = strength
    add = nodes.new("ShaderNodeAddShader")
    links = material.node_tree.links
    links.new(diffuse.outputs["BSDF"], add.inputs[0])
    links.new(emit.outputs["Emission"], add.inputs[1])
    links.new(add.outputs["Shader"], output.inputs["Surface"])

# The glTF carries no environment: black, or the white sky asked for.
world = bpy.data.worlds.new("sky")
world.use_nodes = True
background = world.node_tree.nodes.get("Background")
background.inputs["Color"].default_value = (1, 1, 1, 1) if sky > 0 else (0, 0, 0, 1)
background.inputs["Strength"].default_value = sky
scene.world = world

render = scene.render
render.engine = "CYCLES"
render.resolution_x = render.resolution_y = size
render.resolution_percentage = 100
render.threads_mode = "FIXED"
render.threads = threads
render.use_persistent_data = False
render.film_transparent = False

cycles = scene.cycles
cycles.device = "CPU"
cycles.samples = samples
cycles.use_adaptive_sampling = False
cycles.use_denoising = False
cycles.seed = seed
cycles.use_animated_seed = False
cycles.max_bounces = 8
cycles.diffuse_bounces = cycles.glossy_bounces = cycles.transmission_bounces = 8
cycles.volume_bounces = cycles.transparent_max_bounces = 8
cycles.sample_clamp_direct = cycles.sample_clamp_indirect = 0
cycles.blur_glossy = 0
cycles.caustics_reflective = cycles.caustics_refractive = True
# Width 1.5 is Cycles' Gaussian of standard deviation 0.375 px, cut at 2.25 px.
cycles.pixel_filter_type = "GAUSSIAN"
cycles.filter_width = 1.5

scene.view_settings.view_transform = "Standard"
scene.view_settings.look = "None"
scene.view_settings.exposure = 0
scene.view_settings.gamma = 1
settings = render.image_settings
settings.file_format = "OPEN_EXR"
settings.color_mode = "RGBA"
settings.color_depth = "32"
settings.exr_codec = "ZIP"

start, cpu_start = time.perf_counter(), time.process_time()
bpy.ops.render.render()
seconds, cpu_seconds = time.perf_counter() - start, time.process_time() - cpu_start
bpy.data.images["Render Result"].save_render(out_path, scene=scene)
print("cycles-render-seconds %.4f cpu %.4f" % (seconds, cpu_seconds))
