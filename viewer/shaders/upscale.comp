#version 430
#extension GL_ARB_separate_shader_objects : enable
#extension GL_ARB_shading_language_420pack : enable
#extension GL_ARB_bindless_texture : enable
#extension GL_ARB_texture_gather : enable
#______DEFINES______
// Display upscaling in two compute passes, selected by the defines the host puts in place of the
// marker above: SAMPLE_TOVU scales the render-sized picture to the window with an edge-adaptive
// filter (a radial Lanczos approximation), SAMPLE_NALT sharpens the result at the window's size.
// Only the 32-bit float path exists; there is no half-precision variant.

#if !defined(A_GPU) || !defined(A_GLSL)
#error "the host supplies A_GPU and A_GLSL"
#endif

// ---- Portability layer: the small vocabulary both passes are written in.
#define AF1 float
#define AF2 vec2
#define AF3 vec3
#define AF4 vec4
#define AU1 uint
#define AU2 uvec2
#define AU4 uvec4
#define ASU2 ivec2

AF1 AF1_AU1(AU1 x) { return uintBitsToFloat(x); }
AF2 AF2_AU2(AU2 x) { return uintBitsToFloat(x); }
AU1 AU1_AF1(AF1 x) { return floatBitsToUint(x); }
AF1 ASatF1(AF1 a) { return clamp(a, 0.0, 1.0); }
AF1 ARcpF1(AF1 a) { return 1.0 / a; }
AF1 AMax3F1(AF1 a, AF1 b, AF1 c) { return max(a, max(b, c)); }
AF1 AMin3F1(AF1 a, AF1 b, AF1 c) { return min(a, min(b, c)); }
AF3 AMax3F3(AF3 a, AF3 b, AF3 c) { return max(a, max(b, c)); }
AF3 AMin3F3(AF3 a, AF3 b, AF3 c) { return min(a, min(b, c)); }

// Reciprocals and square roots from the float's bits: an integer subtraction gives a guess good
// to a few percent, which is all the edge analysis needs.
AF1 APrxLoRcpF1(AF1 a) { return AF1_AU1(AU1(0x7ef07ebb) - AU1_AF1(a)); }
AF1 APrxLoRsqF1(AF1 a) { return AF1_AU1(AU1(0x5f347d74) - (AU1_AF1(a) >> AU1(1))); }
// One Newton step on a finer guess: close enough that a flat area keeps its tone.
AF1 APrxMedRcpF1(AF1 a)
{
    AF1 b = AF1_AU1(AU1(0x7ef19fff) - AU1_AF1(a));
    return b * (-b * a + AF1(2.0));
}

// An 8x8 block from 64 threads, ordered so that each 2x2 quad holds neighbours.
AU2 ARmp8x8(AU1 a)
{
    return AU2(bitfieldExtract(a, 1, 3), bitfieldInsert(bitfieldExtract(a, 3, 3), a, 0, 1));
}

// ---- Resources, the same for both passes.
layout(binding=3) uniform sampler2D InputSampler;
layout (rgba32f, binding = 1) writeonly uniform image2D img_output;
layout(std140, binding=2) readonly buffer const_buffer
{
    uvec4 Const0;
    uvec4 Const1;
    uvec4 Const2;
    uvec4 Const3;
};
layout (local_size_x = 64) in;

#if SAMPLE_TOVU
// ---- Edge-adaptive scaling.
AF4 VskTovuRF(AF2 p) { return textureGather(InputSampler, p, 0); }
AF4 VskTovuGF(AF2 p) { return textureGather(InputSampler, p, 1); }
AF4 VskTovuBF(AF2 p) { return textureGather(InputSampler, p, 2); }

// Adds one tap's weighted colour: its offset is rotated into the edge's frame, stretched, and the
// squared distance runs through a Lanczos-2 shape built from polynomials alone. The distance is
// capped at the kernel's clip so that taps outside the window count as at its edge.
void VskTovuTap(inout AF3 aC, inout AF1 aW, AF2 off, AF2 dir, AF2 len2, AF1 lob, AF1 clp, AF3 c)
{
    AF2 v;
    v.x = (off.x * dir.x) + (off.y * dir.y);
    v.y = (off.x * (-dir.y)) + (off.y * dir.x);
    v *= len2;
    AF1 d2 = v.x * v.x + v.y * v.y;
    d2 = min(d2, clp);
    AF1 wB = AF1(2.0 / 5.0) * d2 + AF1(-1.0);
    AF1 wA = lob * d2 + AF1(-1.0);
    wB *= wB;
    wA *= wA;
    wB = AF1(25.0 / 16.0) * wB + AF1(-(25.0 / 16.0 - 1.0));
    AF1 w = wB * wA;
    aC += c * w;
    aW += w;
}

// One corner of the square f g j k: how strongly and which way luma changes through the plus
// of five taps centred there, weighted by the sample's closeness to that corner. A slope gives a
// length of 1, a reversal across the centre gives 0.
void VskTovuSet(inout AF2 dir, inout AF1 len, AF1 w, AF1 lA, AF1 lB, AF1 lC, AF1 lD, AF1 lE)
{
    AF1 dc = lD - lC;
    AF1 cb = lC - lB;
    AF1 lenX = max(abs(dc), abs(cb));
    lenX = APrxLoRcpF1(lenX);
    AF1 dirX = lD - lB;
    dir.x += dirX * w;
    lenX = ASatF1(abs(dirX) * lenX);
    lenX *= lenX;
    len += lenX * w;

    AF1 ec = lE - lC;
    AF1 ca = lC - lA;
    AF1 lenY = max(abs(ec), abs(ca));
    lenY = APrxLoRcpF1(lenY);
    AF1 dirY = lE - lA;
    dir.y += dirY * w;
    lenY = ASatF1(abs(dirY) * lenY);
    lenY *= lenY;
    len += lenY * w;
}

void VskTovuF(out AF3 pix, AU2 ip, AU4 con0, AU4 con1, AU4 con2, AU4 con3)
{
    // Where the output pixel falls in the input; f is the texel at or before it on both axes.
    // Kept unfused so that the choice of f is the same on every implementation.
    precise AF2 pp = AF2(ip) * AF2_AU2(con0.xy) + AF2_AU2(con0.zw);
    AF2 fp = floor(pp);
    pp -= fp;

    // Each gather lands between texel centres, so it takes a fixed 2x2 square of the grid
    //    b c
    //  e f g h
    //  i j k l
    //    n o
    AF2 p0 = fp * AF2_AU2(con1.xy) + AF2_AU2(con1.zw);
    AF2 p1 = p0 + AF2_AU2(con2.xy);
    AF2 p2 = p0 + AF2_AU2(con2.zw);
    AF2 p3 = p0 + AF2_AU2(con3.xy);
    AF4 bczzR = VskTovuRF(p0);
    AF4 bczzG = VskTovuGF(p0);
    AF4 bczzB = VskTovuBF(p0);
    AF4 ijfeR = VskTovuRF(p1);
    AF4 ijfeG = VskTovuGF(p1);
    AF4 ijfeB = VskTovuBF(p1);
    AF4 klhgR = VskTovuRF(p2);
    AF4 klhgG = VskTovuGF(p2);
    AF4 klhgB = VskTovuBF(p2);
    AF4 zzonR = VskTovuRF(p3);
    AF4 zzonG = VskTovuGF(p3);
    AF4 zzonB = VskTovuBF(p3);

    // Twice the luma, near enough for finding edges.
    AF4 bczzL = bczzB * AF4(0.5) + (bczzR * AF4(0.5) + bczzG);
    AF4 ijfeL = ijfeB * AF4(0.5) + (ijfeR * AF4(0.5) + ijfeG);
    AF4 klhgL = klhgB * AF4(0.5) + (klhgR * AF4(0.5) + klhgG);
    AF4 zzonL = zzonB * AF4(0.5) + (zzonR * AF4(0.5) + zzonG);
    AF1 bL = bczzL.x;
    AF1 cL = bczzL.y;
    AF1 iL = ijfeL.x;
    AF1 jL = ijfeL.y;
    AF1 fL = ijfeL.z;
    AF1 eL = ijfeL.w;
    AF1 kL = klhgL.x;
    AF1 lL = klhgL.y;
    AF1 hL = klhgL.z;
    AF1 gL = klhgL.w;
    AF1 oL = zzonL.z;
    AF1 nL = zzonL.w;

    AF2 dir = AF2(0.0);
    AF1 len = AF1(0.0);
    VskTovuSet(dir, len, (1.0 - pp.x) * (1.0 - pp.y), bL, eL, fL, gL, jL);
    VskTovuSet(dir, len, pp.x * (1.0 - pp.y), cL, fL, gL, hL, kL);
    VskTovuSet(dir, len, (1.0 - pp.x) * pp.y, fL, iL, jL, kL, nL);
    VskTovuSet(dir, len, pp.x * pp.y, gL, jL, kL, lL, oL);

    // A unit direction; without a gradient worth the name, lean horizontal.
    AF2 dir2 = dir * dir;
    AF1 dirR = dir2.x + dir2.y;
    bool zro = dirR < AF1(1.0 / 32768.0);
    dirR = APrxLoRsqF1(dirR);
    dirR = zro ? AF1(1.0) : dirR;
    dir.x = zro ? AF1(1.0) : dir.x;
    dir *= AF2(dirR);

    // Length 0..2 to 0..1, squared so that only clear edges turn the kernel.
    len = len * AF1(0.5);
    len *= len;

    // Along a diagonal the kernel stretches up to sqrt(2) so it still reaches the square's
    // corners; across the edge it narrows.
    AF1 stretch = (dir.x * dir.x + dir.y * dir.y) * APrxLoRcpF1(max(abs(dir.x), abs(dir.y)));
    AF2 len2 = AF2(AF1(1.0) + (stretch - AF1(1.0)) * len, AF1(1.0) + AF1(-0.5) * len);
    AF1 lob = AF1(0.5) + AF1((1.0 / 4.0 - 0.04) - 0.5) * len;
    AF1 clp = APrxLoRcpF1(lob);

    // The nearest four bound the result: the negative lobe may not ring past them.
    AF3 min4 = min(AMin3F3(AF3(ijfeR.z, ijfeG.z, ijfeB.z), AF3(klhgR.w, klhgG.w, klhgB.w),
                           AF3(ijfeR.y, ijfeG.y, ijfeB.y)),
                   AF3(klhgR.x, klhgG.x, klhgB.x));
    AF3 max4 = max(AMax3F3(AF3(ijfeR.z, ijfeG.z, ijfeB.z), AF3(klhgR.w, klhgG.w, klhgB.w),
                           AF3(ijfeR.y, ijfeG.y, ijfeB.y)),
                   AF3(klhgR.x, klhgG.x, klhgB.x));

    AF3 aC = AF3(0.0);
    AF1 aW = AF1(0.0);
    VskTovuTap(aC, aW, AF2( 0.0, -1.0) - pp, dir, len2, lob, clp, AF3(bczzR.x, bczzG.x, bczzB.x)); // b
    VskTovuTap(aC, aW, AF2( 1.0, -1.0) - pp, dir, len2, lob, clp, AF3(bczzR.y, bczzG.y, bczzB.y)); // c
    VskTovuTap(aC, aW, AF2(-1.0,  1.0) - pp, dir, len2, lob, clp, AF3(ijfeR.x, ijfeG.x, ijfeB.x)); // i
    VskTovuTap(aC, aW, AF2( 0.0,  1.0) - pp, dir, len2, lob, clp, AF3(ijfeR.y, ijfeG.y, ijfeB.y)); // j
    VskTovuTap(aC, aW, AF2( 0.0,  0.0) - pp, dir, len2, lob, clp, AF3(ijfeR.z, ijfeG.z, ijfeB.z)); // f
    VskTovuTap(aC, aW, AF2(-1.0,  0.0) - pp, dir, len2, lob, clp, AF3(ijfeR.w, ijfeG.w, ijfeB.w)); // e
    VskTovuTap(aC, aW, AF2( 1.0,  1.0) - pp, dir, len2, lob, clp, AF3(klhgR.x, klhgG.x, klhgB.x)); // k
    VskTovuTap(aC, aW, AF2( 2.0,  1.0) - pp, dir, len2, lob, clp, AF3(klhgR.y, klhgG.y, klhgB.y)); // l
    VskTovuTap(aC, aW, AF2( 2.0,  0.0) - pp, dir, len2, lob, clp, AF3(klhgR.z, klhgG.z, klhgB.z)); // h
    VskTovuTap(aC, aW, AF2( 1.0,  0.0) - pp, dir, len2, lob, clp, AF3(klhgR.w, klhgG.w, klhgB.w)); // g
    VskTovuTap(aC, aW, AF2( 1.0,  2.0) - pp, dir, len2, lob, clp, AF3(zzonR.z, zzonG.z, zzonB.z)); // o
    VskTovuTap(aC, aW, AF2( 0.0,  2.0) - pp, dir, len2, lob, clp, AF3(zzonR.w, zzonG.w, zzonB.w)); // n

    pix = min(max4, max(min4, aC * AF3(ARcpF1(aW))));
}

void CurrFilter(AU2 pos)
{
    AF3 c;
    VskTovuF(c, pos, Const0, Const1, Const2, Const3);
    imageStore(img_output, ASU2(pos), AF4(c, 1.0));
}
#endif

#if SAMPLE_NALT
// ---- Sharpening at the output size.
#define VSK_NALT_LIMIT (0.25 - (1.0 / 16.0))

AF3 VskNaltLoadF(ASU2 p) { return texelFetch(InputSampler, p, 0).rgb; }

void VskNaltF(out AF1 pixR, out AF1 pixG, out AF1 pixB, AU2 ip, AU4 con0)
{
    ASU2 sp = ASU2(ip);
    AF3 b = VskNaltLoadF(sp + ASU2( 0, -1));
    AF3 d = VskNaltLoadF(sp + ASU2(-1,  0));
    AF3 e = VskNaltLoadF(sp);
    AF3 f = VskNaltLoadF(sp + ASU2( 1,  0));
    AF3 h = VskNaltLoadF(sp + ASU2( 0,  1));

#ifdef VSK_NALT_DENOISE
    // How much the centre stands out from the cross, against the cross's own spread: noise.
    AF1 bL = b.b * 0.5 + (b.r * 0.5 + b.g);
    AF1 dL = d.b * 0.5 + (d.r * 0.5 + d.g);
    AF1 eL = e.b * 0.5 + (e.r * 0.5 + e.g);
    AF1 fL = f.b * 0.5 + (f.r * 0.5 + f.g);
    AF1 hL = h.b * 0.5 + (h.r * 0.5 + h.g);
    AF1 nz = 0.25 * bL + 0.25 * dL + 0.25 * fL + 0.25 * hL - eL;
    nz = ASatF1(abs(nz) * APrxMedRcpF1(AMax3F1(AMax3F1(bL, dL, eL), fL, hL) -
                                       AMin3F1(AMin3F1(bL, dL, eL), fL, hL)));
    nz = -0.5 * nz + 1.0;
#endif

    // The strongest negative lobe that keeps every channel within 0..1 given the cross's range.
    AF3 mn4 = min(AMin3F3(b, d, f), h);
    AF3 mx4 = max(AMax3F3(b, d, f), h);
    AF3 hitMin = mn4 * AF3(ARcpF1(4.0 * mx4.r), ARcpF1(4.0 * mx4.g), ARcpF1(4.0 * mx4.b));
    AF3 hitMax = (AF3(1.0) - mx4) *
                 AF3(ARcpF1(4.0 * mn4.r - 4.0), ARcpF1(4.0 * mn4.g - 4.0), ARcpF1(4.0 * mn4.b - 4.0));
    AF3 lobeRGB = max(-hitMin, hitMax);
    AF1 lobe = max(AF1(-VSK_NALT_LIMIT), min(AMax3F1(lobeRGB.r, lobeRGB.g, lobeRGB.b), 0.0)) *
               AF1_AU1(con0.x);
#ifdef VSK_NALT_DENOISE
    lobe *= nz;
#endif

    AF1 rcpL = APrxMedRcpF1(4.0 * lobe + 1.0);
    pixR = (lobe * b.r + lobe * d.r + lobe * h.r + lobe * f.r + e.r) * rcpL;
    pixG = (lobe * b.g + lobe * d.g + lobe * h.g + lobe * f.g + e.g) * rcpL;
    pixB = (lobe * b.b + lobe * d.b + lobe * h.b + lobe * f.b + e.b) * rcpL;
}

void CurrFilter(AU2 pos)
{
    AF3 c;
    VskNaltF(c.r, c.g, c.b, pos, Const0);
    imageStore(img_output, ASU2(pos), AF4(c, 1.0));
}
#endif

void main()
{
    // Each group owns a 16x16 tile, each thread four pixels of it, one in each 8x8 quarter.
    AU2 gxy = ARmp8x8(gl_LocalInvocationID.x) + AU2(gl_WorkGroupID.x << 4u, gl_WorkGroupID.y << 4u);
    CurrFilter(gxy);
    gxy.x += 8u;
    CurrFilter(gxy);
    gxy.y += 8u;
    CurrFilter(gxy);
    gxy.x -= 8u;
    CurrFilter(gxy);
}
