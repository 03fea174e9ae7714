/* ZvrLoadStore: the load/store library's public C interface: scene import and export, the objects
 * an import created, its transform groups and animation records, and parameter setters by name.
 *
 * Statuses are those of ZvrCore.h; a file that cannot be read, parsed or written is ZVR_ERROR_IO
 * (-18), with the file and the problem in the context's last-error text. */
#ifndef ZVR_LOADSTORE_H
#define ZVR_LOADSTORE_H

#include "ZvrCore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Local transform of a group, as translation, rotation quaternion (x, y, z, w) and scale. */
typedef struct ZvrsTransformGroupBlock {
  float translation[3];
  float rotation[4];
  float scale[3];
} ZvrsTransformGroupBlock;

typedef enum ZvrsAnimationKind {
  ZVRS_ANIMATION_TRANSLATION = 1,  /* 3 values a key */
  ZVRS_ANIMATION_ROTATION = 2,     /* 4 values a key: quaternion x, y, z, w */
  ZVRS_ANIMATION_SCALE = 3         /* 3 values a key */
} ZvrsAnimationKind;

typedef enum ZvrsInterpolation {
  ZVRS_INTERPOLATION_LINEAR = 0, ZVRS_INTERPOLATION_STEP = 1, ZVRS_INTERPOLATION_CUBICSPLINE = 2
} ZvrsInterpolation;

/* One animated channel of one group, with linear keys (STEP and CUBICSPLINE sources are resampled). */
typedef struct ZvrsAnimationRecord {
  uint32_t animationIndex;        /* which animation of the file the channel came from */
  uint32_t sourceInterpolation;   /* ZvrsInterpolation of the file, before conversion */
  const char* groupName;          /* the animated group */
  uint32_t kind;                  /* ZvrsAnimationKind */
  uint32_t componentCount;        /* values a key: 3 or 4 */
  uint32_t timeCount;             /* number of time values */
  uint32_t keyCount;              /* number of keys */
  const float* times;             /* seconds, ascending */
  const float* values;            /* keyCount x componentCount */
} ZvrsAnimationRecord;

#ifdef __cplusplus
static_assert(sizeof(ZvrsTransformGroupBlock) == 40, "transform group block is 40 bytes");
static_assert(sizeof(ZvrsAnimationRecord) == 48, "animation record is 48 bytes");
static_assert(offsetof(ZvrsAnimationRecord, groupName) == 8, "group name at 8");
static_assert(offsetof(ZvrsAnimationRecord, kind) == 16, "kind at 16");
static_assert(offsetof(ZvrsAnimationRecord, timeCount) == 24, "time count at 24");
static_assert(offsetof(ZvrsAnimationRecord, keyCount) == 28, "key count at 28");
static_assert(offsetof(ZvrsAnimationRecord, times) == 32, "times at 32");
static_assert(offsetof(ZvrsAnimationRecord, values) == 40, "values at 40");
#endif

/* Context parameters by name ("displaygamma", "texturegamma", "mipmaplodoffset", "maxdepth.*",
 * "ooctexcache", ...); an unknown name fails with ZVR_ERROR_UNKNOWN_KEY. */
ZVR_API ZvrStatus zvrContextSetParameter1u(ZvrContext context, const char* name, uint32_t x);
ZVR_API ZvrStatus zvrContextSetParameter1f(ZvrContext context, const char* name, float x);

/* Reads a glTF 2.0 (.gltf, .glb) or XML scene document, told apart by content, creates its objects
 * in the context and makes the new scene the context's scene. `useExistingScene` and `options`
 * are reserved: false and null. */
ZVR_API ZvrStatus zvrsImport(const char* path, ZvrContext context, ZvrMaterialSystem materialSystem, ZvrScene* outScene,
                             int useExistingScene, const void* options);
/* Writes the OCIO configuration an XML scene carries beside `tempName` and points the context's
 * ZVR_CONTEXT_OCIO_CONFIG_PATH at it; the files are removed with the context. `flags`: 0. */
ZVR_API ZvrStatus zvrsBuildOCIOFiles(const char* path, ZvrContext context, const char* tempName, uint32_t flags);
/* Writes everything an import of `path` would hold as one self-contained XML document. */
ZVR_API ZvrStatus zvrsExportToXML(const char* path, const char* outPath);

/* A sky given from outside the scene file. */
typedef struct ZvrsEnvironment {
  const char* imagePath; /* lat-long image (HDR, EXR, ...), embedded in the document; null: a constant colour */
  float color[3];        /* the constant colour; multiplies the image when there is one */
  float intensity;       /* finite, not negative */
  float rotation;        /* degrees about +y */
} ZvrsEnvironment;
/* As zvrsExportToXML, with the document's environment replaced by `environment`, so that an
 * import renders the sky a render with the same environment had. An image that cannot be read
 * fails with ZVR_ERROR_IO. */
ZVR_API ZvrStatus zvrsExportToXMLWithEnvironment(const char* path, const char* outPath, const ZvrsEnvironment* environment);

/* Lists of the last import's objects: with a null buffer the count, else `size` bytes of handles. */
ZVR_API ZvrStatus zvrsListImportedShapes(void* buffer, size_t size, uint32_t* outCount);
ZVR_API ZvrStatus zvrsListImportedLights(void* buffer, size_t size, uint32_t* outCount);
ZVR_API ZvrStatus zvrsListImportedCameras(void* buffer, size_t size, uint32_t* outCount);

/* Name of the group an object or group belongs to; empty for a root. */
ZVR_API ZvrStatus zvrsGetParentGroupFromShape(ZvrShape shape, size_t size, char* name, size_t* outSize);
ZVR_API ZvrStatus zvrsGetParentGroupFromLight(ZvrLight light, size_t size, char* name, size_t* outSize);
ZVR_API ZvrStatus zvrsGetParentGroupFromCamera(ZvrCamera camera, size_t size, char* name, size_t* outSize);
ZVR_API ZvrStatus zvrsGetParentGroupFromGroup(const char* group, size_t size, char* name, size_t* outSize);
/* Local transform of a named group. */
ZVR_API ZvrStatus zvrsGetTransformGroup(const char* group, ZvrsTransformGroupBlock* outBlock);
/* Animation record `index` of the last import; null past the last. Valid until zvrsReleaseImportedData. */
ZVR_API const ZvrsAnimationRecord* zvrsGetAnimation(uint32_t index);

/* Frees the groups and animation records; the created objects stay. */
ZVR_API ZvrStatus zvrsReleaseImportedData(void);
/* Deletes every object the imports into `context` created; null: of every context. */
ZVR_API ZvrStatus zvrsDeleteListImportedObjects(ZvrContext context);

#ifdef __cplusplus
}
#endif

#endif /* ZVR_LOADSTORE_H */
