/* ZvrCore: the render library's public C interface.
 *
 * Handles are opaque; every operation returns a ZvrStatus (0 success, negative failure) unless
 * said otherwise, with out-parameters last. After a failure the context's last-error text
 * (ZVR_CONTEXT_LAST_ERROR_MESSAGE) says what was wrong; a success leaves that text as it was. A
 * failure whose handle leads to no live context (a deleted or null handle) is reported by every
 * context's last error until that context fails itself. Matrices are 16 floats with the
 * translation in elements 12, 13, 14; setters with `transpose` set take the other layout. */
#ifndef ZVR_CORE_H
#define ZVR_CORE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZVR_API __attribute__((visibility("default")))
#else
#define ZVR_API
#endif

/* ---- versions ---------------------------------------------------------------------------- */
#define ZVR_API_VERSION 0x300106               /* passed to zvrCreateContext */
#define ZVR_API_VERSION_MINOR 0x1F29F423ULL    /* build identifier, informative only */

/* ---- handles ----------------------------------------------------------------------------- */
typedef struct ZvrObject_t* ZvrObject;           /* any object */
typedef struct ZvrObject_t* ZvrContext;          /* render context */
typedef struct ZvrObject_t* ZvrScene;            /* set of shapes, lights and one camera */
typedef struct ZvrObject_t* ZvrShape;            /* triangle mesh with transform and material */
typedef struct ZvrObject_t* ZvrLight;            /* point, spot, directional or environment */
typedef struct ZvrObject_t* ZvrCamera;           /* viewpoint and projection */
typedef struct ZvrObject_t* ZvrImage;            /* texture pixels */
typedef struct ZvrObject_t* ZvrFrameBuffer;      /* render target */
typedef struct ZvrObject_t* ZvrPostEffect;       /* resolve-time image operation */
typedef struct ZvrObject_t* ZvrMaterialSystem;   /* owner of material nodes */
typedef struct ZvrObject_t* ZvrMaterialNode;     /* one material */

typedef int32_t ZvrStatus;
typedef uint32_t ZvrContextInfo;
typedef intptr_t ZvrContextProperties;         /* creation property slot: key, value, ..., 0 */

/* ---- statuses ---------------------------------------------------------------------------- */
#define ZVR_SUCCESS 0
#define ZVR_ERROR_INVALID_API_VERSION -1       /* zvrCreateContext with another interface version */
#define ZVR_ERROR_INVALID_ARGUMENT -2          /* a value out of range, a null pointer */
#define ZVR_ERROR_INVALID_OBJECT -3            /* a handle that is not a live object of the right kind */
#define ZVR_ERROR_SHADER_COMPILATION -4        /* precompiled kernels are missing */
#define ZVR_ERROR_UNKNOWN_KEY -5               /* a key or parameter name the object does not have */
#define ZVR_ERROR_INVALID_SIZE -6              /* a buffer of the wrong size for the key */
#define ZVR_ERROR_OUT_OF_MEMORY -7             /* an allocation failed */
#define ZVR_ERROR_UNSUPPORTED -8               /* the active plug-in cannot do what was asked */
#define ZVR_ERROR_NO_PLUGIN -9                 /* no plug-in registered, or none active */
#define ZVR_ERROR_PLUGIN_LOAD -10              /* a plug-in file that cannot be loaded or is of another version */
#define ZVR_ERROR_BUSY -11                     /* the operation is not allowed while a render runs */
#define ZVR_ERROR_INTERNAL -12                 /* an unexpected failure inside the library */
#define ZVR_ERROR_IO -18                       /* a file that cannot be read, parsed or written */

/* ---- plug-in families ------------------------------------------------------------------------ */
/* The program tells a family by the plug-in file's name; a plug-in names its own to the library. */
typedef enum ZvrPluginFamily {
  ZVR_PLUGIN_FAMILY_NONE = 0,    /* none of the three below */
  ZVR_PLUGIN_FAMILY_VELDER = 1,  /* the reference path tracer */
  ZVR_PLUGIN_FAMILY_QUILLON = 2, /* integrators, contour, render layers */
  ZVR_PLUGIN_FAMILY_DORRIK = 3   /* the fast preview; its framebuffers hold final values */
} ZvrPluginFamily;

/* ---- creation flags of zvrCreateContext ---------------------------------------------------- */
#define ZVR_CREATION_FLAGS_ENABLE_GPU0 0x1u
#define ZVR_CREATION_FLAGS_ENABLE_GPU1 0x2u
#define ZVR_CREATION_FLAGS_ENABLE_GPU2 0x4u
#define ZVR_CREATION_FLAGS_ENABLE_GPU3 0x8u
#define ZVR_CREATION_FLAGS_ENABLE_CPU 0x10u
#define ZVR_CREATION_FLAGS_ENABLE_GPU4 0x40u
#define ZVR_CREATION_FLAGS_ENABLE_GPU5 0x80u
#define ZVR_CREATION_FLAGS_ENABLE_GPU6 0x100u
#define ZVR_CREATION_FLAGS_ENABLE_GPU7 0x200u
#define ZVR_CREATION_FLAGS_ENABLE_GPU8 0x800u
#define ZVR_CREATION_FLAGS_ENABLE_GPU9 0x1000u
#define ZVR_CREATION_FLAGS_ENABLE_GPU10 0x2000u
#define ZVR_CREATION_FLAGS_ENABLE_GPU11 0x4000u
#define ZVR_CREATION_FLAGS_ENABLE_KEL 0x80000u
#define ZVR_CREATION_FLAGS_ENABLE_DEBUG 0x80000000u

/* ---- creation properties ------------------------------------------------------------------- */
#define ZVR_CONTEXT_CREATEPROP_CPU_THREAD_LIMIT 310        /* worker thread count; a count above the machine's hardware threads is lowered to them */
#define ZVR_CONTEXT_CREATEPROP_KEY_338 338                 /* accepted, value 3 */
#define ZVR_CONTEXT_CREATEPROP_PRECOMPILED_BINARY_PATH 414 /* address of a path text */

/* ---- context keys (S: set, G: get) --------------------------------------------------------- */
#define ZVR_CONTEXT_MEMORY_INFO 261                  /* G: 4 x uint64: scene+fb+texture bytes, physical bytes, largest allocation, process resident bytes */
#define ZVR_CONTEXT_ITERATIONS 267                   /* S,G 1u: iterations per zvrContextRender */
#define ZVR_CONTEXT_IMAGE_FILTER_TYPE 268            /* S,G 1u: 0 none .. 6 blackman */
#define ZVR_CONTEXT_MAX_DEPTH 283                    /* S,G 1u: longest path in bounces */
#define ZVR_CONTEXT_RAY_CAST_EPSILON 284             /* S,G 1f: ray offset, relative to the scene size */
#define ZVR_CONTEXT_RADIANCE_CLAMP 285               /* S,G 1f: largest sample radiance */
#define ZVR_CONTEXT_KEY_287 287                      /* S,G 1u: preview block side, see "provisional pictures" */
#define ZVR_CONTEXT_TEXTURE_GAMMA 288                /* S,G 1f: gamma of images without a colour space */
#define ZVR_CONTEXT_DISPLAY_GAMMA 292                /* S,G 1f: gamma of display encoding */
#define ZVR_CONTEXT_GPU0_NAME 295                    /* G text: device names; fail for absent devices */
#define ZVR_CONTEXT_GPU1_NAME 296
#define ZVR_CONTEXT_GPU2_NAME 297
#define ZVR_CONTEXT_GPU3_NAME 298
#define ZVR_CONTEXT_GPU4_NAME 300
#define ZVR_CONTEXT_GPU5_NAME 301
#define ZVR_CONTEXT_GPU6_NAME 302
#define ZVR_CONTEXT_GPU7_NAME 303
#define ZVR_CONTEXT_FRAMECOUNT 309                   /* S,G 1u: frame hint, 0 or 2, see "provisional pictures" */
#define ZVR_CONTEXT_LAST_ERROR_MESSAGE 311           /* G text: the last failure's explanation */
#define ZVR_CONTEXT_MAX_DEPTH_DIFFUSE 312            /* S,G 1u */
#define ZVR_CONTEXT_MAX_DEPTH_GLOSSY 313             /* S,G 1u */
#define ZVR_CONTEXT_MAX_DEPTH_REFRACTION 315         /* S,G 1u */
#define ZVR_CONTEXT_MAX_DEPTH_REFRACTION_GLOSSY 316  /* S,G 1u */
#define ZVR_CONTEXT_MAX_DEPTH_SHADOW 320             /* S,G 1u: transparent surfaces a shadow ray passes */
#define ZVR_CONTEXT_API_VERSION 321                  /* G uint32 */
#define ZVR_CONTEXT_GPU8_NAME 322
#define ZVR_CONTEXT_GPU9_NAME 323
#define ZVR_CONTEXT_GPU10_NAME 324
#define ZVR_CONTEXT_GPU11_NAME 325
#define ZVR_CONTEXT_API_VERSION_MINOR 330            /* G uint64 */
#define ZVR_CONTEXT_MIPMAP_LOD_OFFSET 336            /* S,G 1f: added to the texture level of detail */
#define ZVR_CONTEXT_TILE_SIZE 342                    /* S,G 4f: tile width, height, 0, 0; 0 lets the library choose */
#define ZVR_CONTEXT_LIST_CREATED_CAMERAS 343         /* G: handles of live objects of the kind, 8 bytes each */
#define ZVR_CONTEXT_LIST_CREATED_MATERIALNODES 344
#define ZVR_CONTEXT_LIST_CREATED_LIGHTS 345
#define ZVR_CONTEXT_LIST_CREATED_SHAPES 346
#define ZVR_CONTEXT_LIST_CREATED_POSTEFFECTS 347
#define ZVR_CONTEXT_LIST_CREATED_HETEROVOLUMES 348
#define ZVR_CONTEXT_LIST_CREATED_GRIDS 349
#define ZVR_CONTEXT_LIST_CREATED_BUFFERS 350
#define ZVR_CONTEXT_LIST_CREATED_IMAGES 351
#define ZVR_CONTEXT_LIST_CREATED_FRAMEBUFFERS 352
#define ZVR_CONTEXT_LIST_CREATED_SCENES 353
#define ZVR_CONTEXT_LIST_CREATED_CURVES 354
#define ZVR_CONTEXT_LIST_CREATED_MATERIALSYSTEM 355
#define ZVR_CONTEXT_LIST_CREATED_COMPOSITE 356
#define ZVR_CONTEXT_LIST_CREATED_LUT 357
#define ZVR_CONTEXT_PLUGIN_VERSION 363               /* G uint32: the active plug-in's version */
#define ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_FUNC 366 /* S ptr: void (*)(float fraction, void* data) */
#define ZVR_CONTEXT_RENDER_PROGRESS_CALLBACK_DATA 367 /* S ptr */
#define ZVR_CONTEXT_OCIO_CONFIG_PATH 369             /* S,G text: OCIO configuration of the scene */
#define ZVR_CONTEXT_CONTOUR_OBJECT_ID 371            /* S,G 1u: 0 or 1, lines where the object id changes (and silhouettes) */
#define ZVR_CONTEXT_CONTOUR_MATERIAL_ID 372          /* S,G 1u: 0 or 1, lines where the material id changes */
#define ZVR_CONTEXT_CONTOUR_NORMAL 373               /* S,G 1u: 0 or 1, lines where the shading normal bends */
#define ZVR_CONTEXT_CONTOUR_THRESHOLD_NORMAL 374     /* S,G 1f: crease angle in degrees, 0 to 180 */
#define ZVR_CONTEXT_CONTOUR_LINEWIDTH_OBJECT_ID 375  /* S,G 1f: pixels, 0 to ZVR_CONTOUR_LINEWIDTH_MAX */
#define ZVR_CONTEXT_CONTOUR_LINEWIDTH_MATERIAL_ID 376 /* S,G 1f: pixels, 0 to ZVR_CONTOUR_LINEWIDTH_MAX */
#define ZVR_CONTEXT_CONTOUR_LINEWIDTH_NORMAL 377     /* S,G 1f: pixels, 0 to ZVR_CONTOUR_LINEWIDTH_MAX */
#define ZVR_CONTEXT_CONTOUR_ANTIALIASING 378         /* S,G 1f: 1 on; [0,1) off with jitter 1; -1 off, no jitter */
#define ZVR_CONTEXT_GPU_INTEGRATOR 379               /* S,G text: integrator name */
#define ZVR_CONTEXT_CPU_INTEGRATOR 380               /* S,G text: integrator name */
#define ZVR_CONTEXT_CAUSTICS_REDUCTION 382           /* S,G 1f: 1 none; below 1 roughens glossy lobes after a diffuse bounce */
#define ZVR_CONTEXT_CONTOUR_DEBUG 383                /* S,G 1u: 0 or 1, colour lines by feature */
#define ZVR_CONTEXT_GPU_MEMORY_LIMIT 384             /* S,G 1f: fraction of texture memory budget */
#define ZVR_CONTEXT_CONTOUR_UV 390                   /* S,G 1u: 0 or 1, lines where UVs jump */
#define ZVR_CONTEXT_CONTOUR_THRESHOLD_UV 391         /* S,G 1f: UV distance, 0 or more */
#define ZVR_CONTEXT_CONTOUR_LINEWIDTH_UV 392         /* S,G 1f: pixels, 0 to ZVR_CONTOUR_LINEWIDTH_MAX */
#define ZVR_CONTEXT_CONTOUR_UV_SECONDARY 404         /* S,G 1u: 0 or 1, UV set 1 for UV lines */
/* The widest contour line, in pixels. */
#define ZVR_CONTOUR_LINEWIDTH_MAX 64
#define ZVR_CONTEXT_FRAMEBUFFER_SAVE_FLOAT32 406     /* S,G 1u: EXR files in 32-bit float instead of half */
/* Keys 407 and 411 are called once per picture: only by a render call whose colour framebuffer (AOV 0)
   holds no iteration yet, i.e. the first call after the framebuffers were created or cleared. Later
   render calls that add iterations to the same picture do not call them. */
#define ZVR_CONTEXT_UPDATE_TIME_CALLBACK_FUNC 407    /* S ptr: void (*)(float ms, void* data), scene update time */
#define ZVR_CONTEXT_UPDATE_TIME_CALLBACK_DATA 408    /* S ptr */
#define ZVR_CONTEXT_IGNORED_TIME_CALLBACK_FUNC 409   /* S ptr: void (*)(float ms, void* data), time not spent rendering */
#define ZVR_CONTEXT_IGNORED_TIME_CALLBACK_DATA 410   /* S ptr */
#define ZVR_CONTEXT_RENDER_TIME_CALLBACK_FUNC 411    /* S ptr: void (*)(float ms, void* data), first iteration time of the picture */
#define ZVR_CONTEXT_RENDER_TIME_CALLBACK_DATA 412    /* S ptr */
#define ZVR_CONTEXT_IMAGE_FILTER_RADIUS 413          /* S,G 1f: filter half-width in pixels */
#define ZVR_CONTEXT_NORMALIZE_LIGHT_INTENSITY_ENABLED 416 /* S,G 1u: emitters scaled to unit power per area */
#define ZVR_CONTEXT_RENDER_QUALITY 4097              /* S,G 1u: 0 low .. 3 full */
#define ZVR_CONTEXT_OOC_TEXTURE_CACHE 4098           /* S,G 1u: texture cache limit in MB, 0 unlimited */
#define ZVR_CONTEXT_API_TRACE_PATH 4099              /* G text: file the API trace goes to, empty when off */
#define ZVR_CONTEXT_ACTIVE_PLUGIN 4100               /* G int32: id of the active plug-in, -1 none */
#define ZVR_CONTEXT_SCENE 4101                       /* S ptr, G 8 bytes: the scene rendered */
#define ZVR_CONTEXT_RENDER_LAYERS 4102               /* G text: attached render layer names, one per line */
#define ZVR_CONTEXT_OWNED_FILE 4103                  /* S text: a file the context deletes when it is deleted */
#define ZVR_CONTEXT_FIRST_SAMPLE_INDEX 4104          /* S,G 1u: sample index of a picture's first iteration, 0 by default */
/* Key 4104 splits one picture's samples between processes: a render into cleared framebuffers takes
   sample indices first, first + 1, ...; later calls continue after the iterations the colour
   framebuffer holds. So shard k of n iterations sets k * n, and the sums of the shards (see
   zvrFrameBufferAddAccumulation) equal one render of all the iterations from index 0. */

/* ---- info keys of other objects ------------------------------------------------------------ */
#define ZVR_OBJECT_NAME 0x777777                     /* any object, text up to 256 bytes */
#define ZVR_OBJECT_TYPE 0x777778                     /* any object, uint32 ZvrObjectType */

#define ZVR_CAMERA_TRANSFORM 0x201                   /* 16 floats, camera to world */
#define ZVR_CAMERA_TYPE 0x202                        /* uint32 ZvrCameraType */
#define ZVR_CAMERA_FOVY 0x203                        /* float, radians */
#define ZVR_CAMERA_ORTHO_HEIGHT 0x204                /* float, world units */
#define ZVR_CAMERA_MODE 0x205                        /* uint32: 0 plain, 3 lat-long, 4 stereo lat-long, 7 fisheye */
#define ZVR_CAMERA_POST_SCALE 0x206                  /* float */
#define ZVR_CAMERA_CLIP 0x207                        /* 2 floats: near, far */
#define ZVR_CAMERA_POSITION 0x20C                    /* 4 floats */
#define ZVR_CAMERA_LOOKAT 0x20D                      /* 4 floats */
#define ZVR_CAMERA_UP 0x20E                          /* 4 floats */

#define ZVR_SHAPE_TRANSFORM 0x403                    /* 16 floats, object to parent */
#define ZVR_SHAPE_VERTEX_COUNT 0x404                 /* uint32 */
#define ZVR_SHAPE_TRIANGLE_COUNT 0x405               /* uint32 */
#define ZVR_SHAPE_MATERIAL 0x406                     /* 8 bytes: ZvrMaterialNode or null */
#define ZVR_SHAPE_VISIBILITY 0x407                   /* uint32 */
#define ZVR_SHAPE_OBJECT_ID 0x408                    /* uint32 */
#define ZVR_SHAPE_MESH_ID 0x409                      /* uint32 */
#define ZVR_SHAPE_GROUP_ID 0x40A                     /* uint32 */
#define ZVR_SHAPE_CATCHER 0x410                      /* uint32 ZvrCatcherFlags */
#define ZVR_SHAPE_LIGHT_GROUP 0x411                  /* int32: light group of its emission, -1 none */

#define ZVR_LIGHT_TRANSFORM 0x803                    /* 16 floats */
#define ZVR_LIGHT_TYPE 0x804                         /* uint32 ZvrLightType */
#define ZVR_LIGHT_RADIANCE 0x805                     /* 3 floats */
#define ZVR_LIGHT_INTENSITY 0x806                    /* float, multiplies the radiance */
#define ZVR_LIGHT_ROTATION 0x807                     /* float, degrees about +y (environment) */
#define ZVR_LIGHT_GROUP 0x810                        /* int32: light group, -1 none */

#define ZVR_IMAGE_DESC 0x1101                        /* ZvrImageDesc */

#define ZVR_FRAMEBUFFER_FORMAT 0x1301                /* ZvrFramebufferFormat */
#define ZVR_FRAMEBUFFER_DESC 0x1302                  /* ZvrFramebufferDesc */
#define ZVR_FRAMEBUFFER_DATA 0x1303                  /* width x height x 4 floats */
#define ZVR_FRAMEBUFFER_CONTENT 0x1304               /* uint32 ZvrFramebufferContent */
#define ZVR_FRAMEBUFFER_ITERATIONS 0x1305            /* uint32: iterations accumulated since the last clear */
#define ZVR_FRAMEBUFFER_LPE 0x1306                   /* text */

#define ZVR_POST_EFFECT_TYPE 0                       /* uint32 */

/* ---- enumerations -------------------------------------------------------------------------- */
typedef enum ZvrObjectType {
  ZVR_OBJECT_CONTEXT = 1, ZVR_OBJECT_SCENE, ZVR_OBJECT_SHAPE, ZVR_OBJECT_LIGHT, ZVR_OBJECT_CAMERA,
  ZVR_OBJECT_IMAGE, ZVR_OBJECT_FRAMEBUFFER, ZVR_OBJECT_POST_EFFECT, ZVR_OBJECT_MATERIAL_SYSTEM,
  ZVR_OBJECT_MATERIAL_NODE
} ZvrObjectType;

typedef enum ZvrPostEffectType {
  ZVR_POST_EFFECT_TONE_MAP = 0,        /* filmic curve; parameter "exposure" */
  ZVR_POST_EFFECT_WHITE_BALANCE = 1,   /* parameter "temperature" in kelvin */
  ZVR_POST_EFFECT_SIMPLE_TONEMAP = 2,  /* parameters "exposure", "contrast" */
  ZVR_POST_EFFECT_NORMALIZATION = 3,   /* divides by the accumulated weight */
  ZVR_POST_EFFECT_GAMMA_CORRECTION = 4,/* encodes with the context's display gamma */
  ZVR_POST_EFFECT_BLOOM = 5            /* parameters "threshold", "radius", "weight" */
} ZvrPostEffectType;

typedef enum ZvrCameraType { ZVR_CAMERA_PERSPECTIVE = 0, ZVR_CAMERA_ORTHOGRAPHIC = 1 } ZvrCameraType;

typedef enum ZvrLightType {
  ZVR_LIGHT_POINT = 0,        /* intensity in candela-like units: irradiance I / r^2 */
  ZVR_LIGHT_SPOT = 1,         /* along -z of its transform; zvrLightSetSpotCone */
  ZVR_LIGHT_DIRECTIONAL = 2,  /* along -z of its transform; irradiance = radiance value */
  ZVR_LIGHT_ENVIRONMENT = 3   /* constant radiance, or a lat-long image times the radiance */
} ZvrLightType;

typedef enum ZvrComponentType {
  ZVR_COMPONENT_TYPE_UINT8 = 1, ZVR_COMPONENT_TYPE_FLOAT16 = 2, ZVR_COMPONENT_TYPE_FLOAT32 = 3,
  ZVR_COMPONENT_TYPE_DEEP = 5 /* framebuffers only: depth-sorted samples per pixel */
} ZvrComponentType;

typedef enum ZvrFramebufferContent {
  ZVR_FRAMEBUFFER_CONTENT_LINEAR = 0,   /* linear light: 8-bit files get the display gamma */
  ZVR_FRAMEBUFFER_CONTENT_DISPLAY = 1,  /* already display-encoded */
  ZVR_FRAMEBUFFER_CONTENT_DATA = 2      /* ids, positions, normals: written clamped and unencoded */
} ZvrFramebufferContent;

/* Catcher objects are invisible in the beauty apart from what they catch. */
typedef enum ZvrCatcherFlags {
  ZVR_CATCHER_NONE = 0,
  ZVR_CATCHER_SHADOW = 1,     /* catches shadows: the shadow.catcher AOV */
  ZVR_CATCHER_REFLECTION = 2  /* catches reflections of the other objects: the reflection.catcher AOV */
} ZvrCatcherFlags;

typedef enum ZvrImageColorSpace { ZVR_IMAGE_COLORSPACE_LINEAR = 0, ZVR_IMAGE_COLORSPACE_SRGB = 1 } ZvrImageColorSpace;

typedef enum ZvrAlphaMode { ZVR_ALPHA_OPAQUE = 0, ZVR_ALPHA_MASK = 1, ZVR_ALPHA_BLEND = 2 } ZvrAlphaMode;
typedef enum ZvrMaterialNodeType { ZVR_MATERIAL_NODE_PBR = 1 } ZvrMaterialNodeType;
typedef enum ZvrWrapMode { ZVR_WRAP_REPEAT = 0, ZVR_WRAP_CLAMP = 1, ZVR_WRAP_MIRROR = 2 } ZvrWrapMode;
typedef enum ZvrFilterMode { ZVR_FILTER_LINEAR = 0, ZVR_FILTER_NEAREST = 1 } ZvrFilterMode;

/* ---- records ------------------------------------------------------------------------------- */
typedef struct ZvrFramebufferFormat { uint32_t numComponents; uint32_t componentType; } ZvrFramebufferFormat;
typedef struct ZvrFramebufferDesc { uint32_t width; uint32_t height; } ZvrFramebufferDesc;

typedef struct ZvrImageDesc {
  uint32_t width, height;
  uint32_t numComponents;   /* 1 to 4 */
  uint32_t componentType;   /* ZVR_COMPONENT_TYPE_UINT8, _FLOAT16 or _FLOAT32 */
  uint32_t colorSpace;      /* ZvrImageColorSpace */
} ZvrImageDesc;

/* Vertex streams: counts are in vertices, strides in bytes (0 = tightly packed). Optional
 * streams are null. Indices are triangles, three per face; null means 0, 1, 2, ... */
typedef struct ZvrMeshDesc {
  const float* positions; size_t positionStride;   /* 3 floats, required */
  const float* normals; size_t normalStride;       /* 3 floats */
  const float* tangents; size_t tangentStride;     /* 4 floats, w = handedness */
  const float* texcoords0; size_t texcoord0Stride; /* 2 floats */
  const float* texcoords1; size_t texcoord1Stride; /* 2 floats */
  const float* colors; size_t colorStride;         /* 4 floats, linear RGBA */
  size_t vertexCount;
  const uint32_t* indices; size_t indexCount;      /* multiple of 3 */
} ZvrMeshDesc;

/* How a material reads one image. */
typedef struct ZvrTextureSlot {
  uint32_t texcoord;        /* UV set 0 or 1 */
  uint32_t wrapS, wrapT;    /* ZvrWrapMode */
  uint32_t magFilter;       /* ZvrFilterMode */
  uint32_t minFilter;       /* ZvrFilterMode; linear means mip-mapped */
  float offset[2];          /* texture transform: uv' = T(offset) R(rotation) S(scale) uv */
  float rotation;
  float scale[2];
} ZvrTextureSlot;

typedef void (*ZvrProgressCallback)(float progress, void* data);
typedef void (*ZvrTimeCallback)(float milliseconds, void* data);

/* ---- plug-ins and contexts ------------------------------------------------------------------ */
/* Loads a render plug-in by file path or by short name (see the plug-in search rules); -1 on failure. */
ZVR_API int32_t zvrRegisterPlugin(const char* pluginName);
/* Creates a context over one or more registered plug-ins (a count of 0 is refused); the first becomes active. */
ZVR_API ZvrStatus zvrCreateContext(uint32_t apiVersion, const int32_t* pluginIds, size_t pluginCount, uint32_t creationFlags,
                                   const ZvrContextProperties* properties, const char* cacheLocation, ZvrContext* outContext);
/* Makes one of the context's plug-ins the one that renders. */
ZVR_API ZvrStatus zvrContextSetActivePlugin(ZvrContext context, int32_t pluginId);

/* ---- context parameters ------------------------------------------------------------------- */
ZVR_API ZvrStatus zvrContextSetParameterByKey1u(ZvrContext context, ZvrContextInfo key, uint32_t x);
ZVR_API ZvrStatus zvrContextSetParameterByKey1f(ZvrContext context, ZvrContextInfo key, float x);
ZVR_API ZvrStatus zvrContextSetParameterByKey4f(ZvrContext context, ZvrContextInfo key, float x, float y, float z, float w);
ZVR_API ZvrStatus zvrContextSetParameterByKeyPtr(ZvrContext context, ZvrContextInfo key, void* pointer);
ZVR_API ZvrStatus zvrContextSetParameterByKeyString(ZvrContext context, ZvrContextInfo key, const char* text);
/* Reads a key; with a null buffer and size 0 reports the size needed in *outSize. */
ZVR_API ZvrStatus zvrContextGetInfo(ZvrContext context, ZvrContextInfo key, size_t size, void* data, size_t* outSize);
/* Stores a failure text as the context's last error; for libraries layered on this one. */
ZVR_API ZvrStatus zvrContextSetLastError(ZvrContext context, const char* text);

/* ---- rendering ---------------------------------------------------------------------------- */
/* Renders ZVR_CONTEXT_ITERATIONS iterations of the context's scene into every bound AOV.
 *
 * Working beside a render. A render call copies what it renders from when it starts: the
 * parameters, the scene's shapes, lights and camera. While it runs, other threads may
 *  - resolve and read any framebuffer (zvrContextResolveFrameBuffer, zvrFrameBufferGetInfo,
 *    zvrFrameBufferSaveToFile), with every plug-in: an iteration reaches a framebuffer whole, under
 *    the framebuffer's lock, so a read holds a whole number of iterations (never part of one) and the
 *    iteration count (ZVR_FRAMEBUFFER_ITERATIONS) that goes with it; AOVs are committed one after
 *    another, so two framebuffers read at the same moment may be one iteration apart;
 *  - clear a framebuffer (zvrFrameBufferClear): the iterations committed afterwards accumulate anew;
 *  - set context keys with zvrContextSetParameterByKey1u/1f/4f/Ptr (not the scene key), call
 *    zvrShapeSetVisibility, zvrCameraLookAt and the other camera setters, attach and detach
 *    render layers and post effects: these take effect from the next render call, never in the
 *    one running;
 *  - call zvrContextAbortRender.
 * Other scene edits, material edits, deletions, AOV bindings, the plug-in and the integrator keys
 * fail with ZVR_ERROR_BUSY until the call returns; one that succeeds is whole before a render
 * call starts copying. A second zvrContextRender on the same context fails with ZVR_ERROR_BUSY
 * as well.
 *
 * Provisional pictures (keys 309 and 287). ZVR_CONTEXT_FRAMECOUNT is a frame hint:
 *  - 0 (ZVR_FRAMECOUNT_ACCUMULATE, the default): every iteration accumulates into the bound
 *    framebuffers. A framebuffer that holds a provisional picture is cleared first, so the
 *    accumulation starts at sample 0 and equals a render from a cleared framebuffer, sample for
 *    sample: provisional samples never reach an accumulated picture.
 *  - 2 (ZVR_FRAMECOUNT_PROVISIONAL): when the colour framebuffer is clear or already provisional,
 *    the call renders a cheap provisional picture for interactive use (the first frames after a
 *    camera move): one sample per square block of pixels, copied to every pixel of the block
 *    (with a box filter the block's size), so an iteration costs about 1/side^2 of a full one.
 *    The bound framebuffers then hold that picture, counted in ZVR_FRAMEBUFFER_ITERATIONS like
 *    any other and averaged with the provisional iterations before it, until the next call with
 *    hint 0 discards it. On a colour framebuffer that holds accumulated iterations the hint is
 *    ignored and the call accumulates as with 0, so an accumulated picture is never degraded.
 *  Any other value is refused.
 * ZVR_CONTEXT_KEY_287 is the side in pixels of those blocks: 0 (the default) lets the library
 * choose (2 today), 1 renders every pixel (the picture is then only provisional: full cost, still
 * discarded), up to ZVR_PREVIEW_BLOCK_MAX. It changes nothing in a call with frame hint 0. */
#define ZVR_FRAMECOUNT_ACCUMULATE 0
#define ZVR_FRAMECOUNT_PROVISIONAL 2
#define ZVR_PREVIEW_BLOCK_DEFAULT 2
#define ZVR_PREVIEW_BLOCK_MAX 16
ZVR_API ZvrStatus zvrContextRender(ZvrContext context);
/* Makes the zvrContextRender call running on the context return after the iteration in flight
 * (with success); the framebuffers then hold whole iterations only. Safe from any thread. With no
 * render running it does nothing: it is not remembered for the next call. */
ZVR_API ZvrStatus zvrContextAbortRender(ZvrContext context);
ZVR_API ZvrStatus zvrContextCreateFrameBuffer(ZvrContext context, ZvrFramebufferFormat format, const ZvrFramebufferDesc* desc,
                                              ZvrFrameBuffer* outFrameBuffer);
/* Binds a framebuffer as the target of an AOV id; a null framebuffer unbinds. */
ZVR_API ZvrStatus zvrContextSetAOV(ZvrContext context, uint32_t aov, ZvrFrameBuffer frameBuffer);
/* Colours for id AOVs: `count` records of 4 floats starting at index `first`. */
ZVR_API ZvrStatus zvrContextSetAOVindicesLookup(ZvrContext context, uint32_t first, uint32_t count, const float* table);
/* Copies src into dst and runs the attached post effects; flag 1 runs normalization alone. */
ZVR_API ZvrStatus zvrContextResolveFrameBuffer(ZvrContext context, ZvrFrameBuffer src, ZvrFrameBuffer dst, uint32_t dataOnly);

/* ---- framebuffers ------------------------------------------------------------------------- */
ZVR_API ZvrStatus zvrFrameBufferClear(ZvrFrameBuffer frameBuffer);
ZVR_API ZvrStatus zvrFrameBufferGetInfo(ZvrFrameBuffer frameBuffer, uint32_t key, size_t size, void* data, size_t* outSize);
/* Writes one image file; the format follows the extension. */
ZVR_API ZvrStatus zvrFrameBufferSaveToFile(ZvrFrameBuffer frameBuffer, const char* path);
/* Writes one multilayer EXR, each framebuffer a layer under its object name. */
ZVR_API ZvrStatus zvrFrameBufferSaveToFileEx(ZvrFrameBuffer const* frameBuffers, uint32_t count, const char* path, const void* extra);
ZVR_API ZvrStatus zvrFrameBufferSetLPE(ZvrFrameBuffer frameBuffer, const char* expression);
/* Raw accumulation, for pictures rendered in shards (key 4104): the framebuffer's sums of filtered
 * sample values (RGB) and of filter weights (A), kept in 64-bit floats, with its iteration count, in
 * the library's own lossless file format (little-endian, checksummed). Saving writes a temporary
 * name and renames it. Adding reads a whole file of the framebuffer's size and adds its sums and
 * iterations; into a cleared framebuffer that is loading. Deep framebuffers, and framebuffers that
 * hold resolved values or running averages (the preview family), are refused. */
ZVR_API ZvrStatus zvrFrameBufferSaveAccumulation(ZvrFrameBuffer frameBuffer, const char* path);
ZVR_API ZvrStatus zvrFrameBufferAddAccumulation(ZvrFrameBuffer frameBuffer, const char* path);

/* ---- objects ------------------------------------------------------------------------------ */
/* Deletes any object; refuses a handle that is not live. */
ZVR_API ZvrStatus zvrObjectDelete(void* object);
ZVR_API ZvrStatus zvrObjectSetName(void* object, const char* name);
ZVR_API ZvrStatus zvrObjectGetInfo(void* object, uint32_t key, size_t size, void* data, size_t* outSize);

/* ---- post effects ------------------------------------------------------------------------- */
ZVR_API ZvrStatus zvrContextCreatePostEffect(ZvrContext context, uint32_t type, ZvrPostEffect* outEffect);
ZVR_API ZvrStatus zvrContextAttachPostEffect(ZvrContext context, ZvrPostEffect effect);
ZVR_API ZvrStatus zvrContextDetachPostEffect(ZvrContext context, ZvrPostEffect effect);
ZVR_API ZvrStatus zvrContextGetAttachedPostEffectCount(ZvrContext context, uint32_t* outCount);
ZVR_API ZvrStatus zvrContextGetAttachedPostEffect(ZvrContext context, uint32_t index, ZvrPostEffect* outEffect);
ZVR_API ZvrStatus zvrPostEffectGetInfo(ZvrPostEffect effect, uint32_t key, size_t size, void* data, size_t* outSize);
ZVR_API ZvrStatus zvrPostEffectSetParameter1f(ZvrPostEffect effect, const char* name, float x);

/* ---- render layers ------------------------------------------------------------------------ */
ZVR_API ZvrStatus zvrContextAttachRenderLayer(ZvrContext context, const char* layer);
ZVR_API ZvrStatus zvrContextDetachRenderLayer(ZvrContext context, const char* layer);

/* ---- scenes ------------------------------------------------------------------------------- */
ZVR_API ZvrStatus zvrContextCreateScene(ZvrContext context, ZvrScene* outScene);
/* The scene that zvrContextRender renders. */
ZVR_API ZvrStatus zvrContextSetScene(ZvrContext context, ZvrScene scene);
ZVR_API ZvrStatus zvrSceneAttachShape(ZvrScene scene, ZvrShape shape);
ZVR_API ZvrStatus zvrSceneDetachShape(ZvrScene scene, ZvrShape shape);
ZVR_API ZvrStatus zvrSceneAttachLight(ZvrScene scene, ZvrLight light);
ZVR_API ZvrStatus zvrSceneDetachLight(ZvrScene scene, ZvrLight light);
/* Creates the scene's own environment light (radiance 1) and makes it the scene's only sky: while
 * it lives, every other environment light of the scene (the importer's default one included) is left
 * out of renders. A second call replaces the first light; it is deleted with the scene. */
ZVR_API ZvrStatus zvrSceneCreateEnvironmentLight(ZvrScene scene, ZvrLight* outLight);
ZVR_API ZvrStatus zvrSceneSetCamera(ZvrScene scene, ZvrCamera camera);
ZVR_API ZvrStatus zvrSceneGetCamera(ZvrScene scene, ZvrCamera* outCamera);

/* ---- cameras ------------------------------------------------------------------------------ */
ZVR_API ZvrStatus zvrContextCreateCamera(ZvrContext context, ZvrCamera* outCamera);
ZVR_API ZvrStatus zvrCameraGetInfo(ZvrCamera camera, uint32_t key, size_t size, void* data, size_t* outSize);
ZVR_API ZvrStatus zvrCameraSetTransform(ZvrCamera camera, int transpose, const float* matrix16);
ZVR_API ZvrStatus zvrCameraSetType(ZvrCamera camera, uint32_t type);
/* Vertical field of view in radians (perspective). */
ZVR_API ZvrStatus zvrCameraSetFovY(ZvrCamera camera, float radians);
/* Full height of the view in world units (orthographic). */
ZVR_API ZvrStatus zvrCameraSetOrthoHeight(ZvrCamera camera, float height);
ZVR_API ZvrStatus zvrCameraSetClipping(ZvrCamera camera, float nearPlane, float farPlane);
ZVR_API ZvrStatus zvrCameraSetMode(ZvrCamera camera, uint32_t mode);
ZVR_API ZvrStatus zvrCameraSetPostScale(ZvrCamera camera, float scale);
ZVR_API ZvrStatus zvrCameraLookAt(ZvrCamera camera, float posX, float posY, float posZ, float atX, float atY, float atZ,
                                  float upX, float upY, float upZ);

/* ---- shapes ------------------------------------------------------------------------------- */
/* Creates a triangle mesh; the streams are copied. */
ZVR_API ZvrStatus zvrContextCreateMesh(ZvrContext context, const ZvrMeshDesc* desc, ZvrShape* outShape);
ZVR_API ZvrStatus zvrShapeGetInfo(ZvrShape shape, uint32_t key, size_t size, void* data, size_t* outSize);
ZVR_API ZvrStatus zvrShapeSetTransform(ZvrShape shape, int transpose, const float* matrix16);
ZVR_API ZvrStatus zvrShapeSetVisibility(ZvrShape shape, int visible);
ZVR_API ZvrStatus zvrShapeSetMaterial(ZvrShape shape, ZvrMaterialNode material);
/* Ids written to the object.id, mesh.id and group.id AOVs. */
ZVR_API ZvrStatus zvrShapeSetObjectId(ZvrShape shape, uint32_t id);
ZVR_API ZvrStatus zvrShapeSetMeshId(ZvrShape shape, uint32_t id);
ZVR_API ZvrStatus zvrShapeSetGroupId(ZvrShape shape, uint32_t id);
/* Light group 0..15 of the shape's emission for the light.group AOVs; -1 for none. */
ZVR_API ZvrStatus zvrShapeSetLightGroup(ZvrShape shape, int32_t group);
/* Once any layer is attached to the context, a shape with layers renders only if one is attached. */
ZVR_API ZvrStatus zvrShapeAddRenderLayer(ZvrShape shape, const char* layer);
/* ZvrCatcherFlags, or-ed; 0 makes the shape an ordinary one again. */
ZVR_API ZvrStatus zvrShapeSetCatcher(ZvrShape shape, uint32_t flags);

/* ---- lights ------------------------------------------------------------------------------- */
ZVR_API ZvrStatus zvrContextCreateLight(ZvrContext context, uint32_t type, ZvrLight* outLight);
ZVR_API ZvrStatus zvrLightGetInfo(ZvrLight light, uint32_t key, size_t size, void* data, size_t* outSize);
ZVR_API ZvrStatus zvrLightSetTransform(ZvrLight light, int transpose, const float* matrix16);
/* Colour times intensity. */
ZVR_API ZvrStatus zvrLightSetRadiance(ZvrLight light, float r, float g, float b);
/* Spot cone half-angles in radians: full intensity inside `inner`, none outside `outer`. */
ZVR_API ZvrStatus zvrLightSetSpotCone(ZvrLight light, float inner, float outer);
/* Lat-long image of an environment light; null for a constant colour. */
ZVR_API ZvrStatus zvrLightSetImage(ZvrLight light, ZvrImage image);
/* Light group 0..15 for the light.group AOVs; -1 for none. */
ZVR_API ZvrStatus zvrLightSetGroup(ZvrLight light, int32_t group);
/* Multiplies the radiance (and an environment's image); 1 by default, finite and not negative. */
ZVR_API ZvrStatus zvrLightSetIntensity(ZvrLight light, float intensity);
/* Turns an environment light about the world's up axis (+y) by `degrees`, after its transform. */
ZVR_API ZvrStatus zvrLightSetRotation(ZvrLight light, float degrees);
/* Reads the lat-long image of an environment light from a file (HDR, EXR, ...), as linear values;
 * a file that cannot be read fails with ZVR_ERROR_IO and its name in the last error. */
ZVR_API ZvrStatus zvrLightSetImagePath(ZvrLight light, const char* path);

/* ---- images ------------------------------------------------------------------------------- */
/* Copies width x height x numComponents values of the given type. */
ZVR_API ZvrStatus zvrContextCreateImage(ZvrContext context, const ZvrImageDesc* desc, const void* data, ZvrImage* outImage);
/* Decodes an image file (PNG, JPEG, EXR, HDR, ...). */
ZVR_API ZvrStatus zvrContextCreateImageFromFile(ZvrContext context, const char* path, uint32_t colorSpace, ZvrImage* outImage);
/* Decodes an encoded image held in memory (the bytes of a PNG or JPEG file). */
ZVR_API ZvrStatus zvrContextCreateImageFromMemory(ZvrContext context, const void* bytes, size_t size, uint32_t colorSpace,
                                                  ZvrImage* outImage);
ZVR_API ZvrStatus zvrImageGetInfo(ZvrImage image, uint32_t key, size_t size, void* data, size_t* outSize);

/* ---- materials ---------------------------------------------------------------------------- */
ZVR_API ZvrStatus zvrContextCreateMaterialSystem(ZvrContext context, uint32_t flags, ZvrMaterialSystem* outSystem);
ZVR_API ZvrStatus zvrMaterialSystemCreateNode(ZvrMaterialSystem system, uint32_t type, ZvrMaterialNode* outNode);
/* Parameters of the PBR node by name; an unknown name or a wrong arity fails:
 *   4f: "base_color"            1f: "metallic", "roughness", "normal_scale", "occlusion_strength",
 *   3f: "emissive", "attenuation_color", "specular_color", "sheen_color"
 *   1f: "emissive_strength", "alpha_cutoff", "ior", "transmission", "thickness", "attenuation_distance",
 *       "clearcoat", "clearcoat_roughness", "clearcoat_normal_scale", "specular", "sheen_roughness"
 *   1u: "alpha_mode" (ZvrAlphaMode), "double_sided", "unlit", "material_id"
 * Texture slots by name: "base_color", "metallic_roughness", "normal", "occlusion", "emissive",
 *   "transmission", "thickness", "clearcoat", "clearcoat_roughness", "clearcoat_normal",
 *   "specular", "specular_color", "sheen_color", "sheen_roughness". */
ZVR_API ZvrStatus zvrMaterialNodeSetParameter1f(ZvrMaterialNode node, const char* name, float x);
ZVR_API ZvrStatus zvrMaterialNodeSetParameter3f(ZvrMaterialNode node, const char* name, float x, float y, float z);
ZVR_API ZvrStatus zvrMaterialNodeSetParameter4f(ZvrMaterialNode node, const char* name, float x, float y, float z, float w);
ZVR_API ZvrStatus zvrMaterialNodeSetParameter1u(ZvrMaterialNode node, const char* name, uint32_t x);
ZVR_API ZvrStatus zvrMaterialNodeSetTexture(ZvrMaterialNode node, const char* slot, ZvrImage image, const ZvrTextureSlot* sampling);
/* Reads a parameter back by name into `size` bytes (4, 12 or 16 for floats; 8 for a texture's image). */
ZVR_API ZvrStatus zvrMaterialNodeGetParameter(ZvrMaterialNode node, const char* name, size_t size, void* data, size_t* outSize);

#ifdef __cplusplus
}
#endif

#endif /* ZVR_CORE_H */
