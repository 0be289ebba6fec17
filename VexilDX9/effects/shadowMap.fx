// Shadow mapping for one lamp.
//
// Technique 0 (ShadowDepth) draws casters into the R32F shadow map: each texel holds the lamp-view
// depth mapped to [0, 1] between zNear and zFar. Clear the map to 1 (white) before drawing.
//
// Technique 1 (ShadowReceiver) draws the scene lit by a white directional light travelling along
// lightDirection, with the material block's ambient, diffuse and specular terms (the same
// equation as the BlinnPhongShading technique of the lighting effect). The diffuse and specular
// terms are scaled by the lit fraction of four shadow-map taps around the pixel's lamp position
// (percentage-closer filtering): a tap is lit when its stored depth + zBias is not nearer than
// the pixel's own lamp depth. Outside the map everything counts as lit.

float4x4 matWorld : register(vs, c0);
float4x4 matViewProjection : register(vs, c4);
float4x4 matWorldInverseTranspose : register(vs, c8);
float4x4 matViewInverse : register(vs, c12);

float ambientCoeff : register(ps, c0) = 0.2;
float4 ambientColor : register(ps, c1) = { 1, 1, 1, 1 };
float diffuseCoeff : register(ps, c2) = 0.8;
float4 diffuseColor : register(ps, c3) = { 1, 1, 1, 1 };
float specularCoeff : register(ps, c4) = 0;
float specularPower : register(ps, c5) = 16;
float4 specularColor : register(ps, c6) = { 1, 1, 1, 1 };
float selfShadowPower : register(ps, c7) = 4;

bool hasTextureMap = false;
bool hasNormalMap = false;
texture textureMap;
texture normalMap;

float4 lightDirection : register(ps, c8) = { 0, -1, 0, 0 };

float mapDimension : register(ps, c9) = 512;
float4x4 lampView : register(vs, c16);
float4x4 lampProjection : register(vs, c20);
texture colorBuffer;
float zBias : register(ps, c10) = 0.005;
float zNear : register(vs, c24) = 1;
float zFar : register(vs, c25) = 100;

sampler2D depthSampler : register(s0) = sampler_state {
    Texture = <colorBuffer>;
    MinFilter = POINT;
    MagFilter = POINT;
    MipFilter = NONE;
    AddressU = BORDER;
    AddressV = BORDER;
    BorderColor = 0xFFFFFFFF;
};
sampler2D textureSampler : register(s1) = sampler_state {
    Texture = <textureMap>;
    MinFilter = LINEAR;
    MagFilter = LINEAR;
    MipFilter = LINEAR;
    AddressU = WRAP;
    AddressV = WRAP;
};

// An instruction reads one constant register at most; a second goes through a temporary.

technique ShadowDepth
{
    pass Depth
    {
        ZEnable = TRUE;
        ZWriteEnable = TRUE;
        CullMode = NONE;
        VertexShader = asm {
            vs_3_0
            dcl_position v0
            dcl_position o0
            dcl_texcoord0 o1.x
            mul r0, v0.x, c0
            mad r0, v0.y, c1, r0
            mad r0, v0.z, c2, r0
            mad r0, v0.w, c3, r0
            mul r1, r0.x, c16
            mad r1, r0.y, c17, r1
            mad r1, r0.z, c18, r1
            mad r1, r0.w, c19, r1
            mul r3, r1.x, c20
            mad r3, r1.y, c21, r3
            mad r3, r1.z, c22, r3
            mad r3, r1.w, c23, r3
            mov o0, r3
            add r2.x, r1.z, -c24.x
            mov r2.y, c25.x
            add r2.y, r2.y, -c24.x
            rcp r2.y, r2.y
            mul o1.x, r2.x, r2.y
        };
        PixelShader = asm {
            ps_3_0
            dcl_texcoord0 v0.x
            mov oC0, v0.x
        };
    }
}

technique ShadowReceiver
{
    pass Lit
    {
        ZEnable = TRUE;
        ZWriteEnable = TRUE;
        CullMode = CCW;
        PixelShaderConstantB[0] = <hasTextureMap>;
        VertexShader = asm {
            vs_3_0
            dcl_position v0
            dcl_normal v1
            dcl_texcoord v2
            dcl_position o0
            dcl_texcoord0 o1.xyz
            dcl_texcoord1 o2
            dcl_texcoord2 o3.x
            dcl_texcoord3 o4.xyz
            dcl_texcoord4 o5.xy
            mul r0, v0.x, c0
            mad r0, v0.y, c1, r0
            mad r0, v0.z, c2, r0
            mad r0, v0.w, c3, r0
            mul r3, r0.x, c4
            mad r3, r0.y, c5, r3
            mad r3, r0.z, c6, r3
            mad r3, r0.w, c7, r3
            mov o0, r3
            mul r4.xyz, v1.x, c8
            mad r4.xyz, v1.y, c9, r4
            mad r4.xyz, v1.z, c10, r4
            mov o1.xyz, r4
            mul r1, r0.x, c16
            mad r1, r0.y, c17, r1
            mad r1, r0.z, c18, r1
            mad r1, r0.w, c19, r1
            mul r3, r1.x, c20
            mad r3, r1.y, c21, r3
            mad r3, r1.z, c22, r3
            mad r3, r1.w, c23, r3
            mov o2, r3
            add r2.x, r1.z, -c24.x
            mov r2.y, c25.x
            add r2.y, r2.y, -c24.x
            rcp r2.y, r2.y
            mul o3.x, r2.x, r2.y
            add o4.xyz, c15, -r0
            mov o5.xy, v2
        };
        PixelShader = asm {
            ps_3_0
            def c20, 0, 1, 0.5, -0.5
            def c21, 0.25, 0, 0, 0
            dcl_texcoord0 v0.xyz
            dcl_texcoord1 v1
            dcl_texcoord2 v2.x
            dcl_texcoord3 v3.xyz
            dcl_texcoord4 v4.xy
            dcl_2d s0
            dcl_2d s1

            // lamp position in map coordinates; the four taps lie half a texel around the
            // texel centre
            rcp r0.w, v1.w
            mul r0.xy, v1, r0.w
            mad r0.xy, r0, c20.zw, c20.z
            mov r0.zw, c20.x
            rcp r1.x, c9.x
            add r1.y, v2.x, -c10.x
            mov r4.x, c20.x
            mov r15.x, c21.x
            mov r2, r0
            texld r3, r2, s0
            add r3.x, r3.x, -r1.y
            cmp r3.x, r3.x, r15.x, c20.x
            add r4.x, r4.x, r3.x
            add r2.x, r0.x, r1.x
            texld r3, r2, s0
            add r3.x, r3.x, -r1.y
            cmp r3.x, r3.x, r15.x, c20.x
            add r4.x, r4.x, r3.x
            add r2.y, r0.y, r1.x
            texld r3, r2, s0
            add r3.x, r3.x, -r1.y
            cmp r3.x, r3.x, r15.x, c20.x
            add r4.x, r4.x, r3.x
            mov r2.x, r0.x
            texld r3, r2, s0
            add r3.x, r3.x, -r1.y
            cmp r3.x, r3.x, r15.x, c20.x
            add r4.x, r4.x, r3.x

            // white directional light, Blinn-Phong
            nrm r5.xyz, v0
            nrm r6.xyz, v3
            mov r7.xyz, -c8
            nrm r8.xyz, r7
            dp3 r9.x, r5, r8
            max r9.y, r9.x, c20.x
            mul_sat r9.z, r9.x, c7.x
            add r7.xyz, r8, r6
            nrm r10.xyz, r7
            dp3 r9.w, r5, r10
            max r9.w, r9.w, c20.x
            pow r7.x, r9.w, c5.x
            mul r7.x, r7.x, r9.z

            if b0
                texld r11, v4, s1
            else
                mov r11, c20.y
            endif
            mov r12, c0
            mul r12.xyz, c1, r12.x
            mul r12.xyz, r12, r11
            mov r13, c2
            mul r13.xyz, c3, r13.x
            mul r13.xyz, r13, r11
            mul r13.xyz, r13, r9.y
            mov r14, c4
            mul r14.xyz, c6, r14.x
            mad r13.xyz, r14, r7.x, r13
            mad r12.xyz, r13, r4.x, r12
            mul r12.w, c3.w, r11.w
            mov oC0, r12
        };
    }
}
