// Per-pixel Blinn-Phong lighting of one directional light, one spot light and one point light.
//
// Each light contributes, with L the unit vector towards the light, V towards the eye and N the
// surface normal (all in world space):
//   diffuse  += C * max(N.L, 0)
//   specular += C * max(N.H, 0)^specularPower * saturate(selfShadowPower * N.L),  H = unit(L + V)
// where C is the light's colour scaled by its attenuation:
//   directional: 1, light travelling along lightDirection;
//   spot: smoothstep(cos(outerAngle), cos(innerAngle), cos of the angle between spotLightDirection
//         and the ray from the light), the angles being half-angles in radians in [0, pi];
//   point: 1 / (1 + squareDistanceFactor * distance^2).
// The pixel is
//   ambientCoeff * ambientColor * base + diffuseCoeff * diffuseColor * base * diffuse
//   + specularCoeff * specularColor * specular
// with base the texel of textureMap when hasTexture is set, white otherwise; alpha is
// diffuseColor.a * base.a. A light is switched off by giving it a black colour.

float ambientCoeff : register(ps, c0) = 0.2;
float4 ambientColor : register(ps, c1) = { 1, 1, 1, 1 };
float4x4 matWorld : register(vs, c0);
float4x4 matViewProjection : register(vs, c4);
float4x4 matWorldInverseTranspose : register(vs, c8);
float4x4 matViewInv : register(vs, c12);
float diffuseCoeff : register(ps, c2) = 0.8;
float4 diffuseColor : register(ps, c3) = { 1, 1, 1, 1 };
float specularCoeff : register(ps, c4) = 0.5;
float specularPower : register(ps, c5) = 16;
float4 specularColor : register(ps, c6) = { 1, 1, 1, 1 };
float selfShadowPower : register(ps, c7) = 4;
bool hasTexture = false;
float squareDistanceFactor : register(ps, c8) = 0;

float4 lightDirection : register(ps, c9) = { 0, -1, 0, 0 };
float4 lightColor : register(ps, c10) = { 1, 1, 1, 1 };

float4 spotLightPosition : register(ps, c11) = { 0, 10, 0, 1 };
float4 spotLightDirection : register(ps, c12) = { 0, -1, 0, 0 };
float4 spotLightColor : register(ps, c13) = { 0, 0, 0, 1 };
float innerAngle : register(ps, c14) = 0.3;
float outerAngle : register(ps, c15) = 0.5;

float4 pointLightPosition : register(ps, c16) = { 0, 10, 0, 1 };
float4 pointLightColor : register(ps, c17) = { 0, 0, 0, 1 };

texture textureMap;
sampler2D textureSampler : register(s0) = sampler_state {
    Texture = <textureMap>;
    MinFilter = LINEAR;
    MagFilter = LINEAR;
    MipFilter = LINEAR;
    AddressU = WRAP;
    AddressV = WRAP;
};

technique BlinnPhongShading
{
    pass Lit
    {
        ZEnable = TRUE;
        ZWriteEnable = TRUE;
        CullMode = CCW;
        PixelShaderConstantB[0] = <hasTexture>;
        VertexShader = asm {
            vs_3_0
            dcl_position v0
            dcl_normal v1
            dcl_texcoord v2
            dcl_position o0
            dcl_texcoord0 o1.xyz
            dcl_texcoord1 o2.xyz
            dcl_texcoord2 o3.xy
            dcl_texcoord3 o4.xyz
            mul r0, v0.x, c0
            mad r0, v0.y, c1, r0
            mad r0, v0.z, c2, r0
            mad r0, v0.w, c3, r0
            mul r1, r0.x, c4
            mad r1, r0.y, c5, r1
            mad r1, r0.z, c6, r1
            mad r1, r0.w, c7, r1
            mov o0, r1
            mov o1.xyz, r0
            mul r2.xyz, v1.x, c8
            mad r2.xyz, v1.y, c9, r2
            mad r2.xyz, v1.z, c10, r2
            mov o2.xyz, r2
            mov o3.xy, v2
            add o4.xyz, c15, -r0
        };
        PixelShader = asm {
            ps_3_0
            // An instruction reads one constant register at most; a second goes through a temporary.
            def c20, 0, 1, 2, 3
            dcl_texcoord0 v0.xyz
            dcl_texcoord1 v1.xyz
            dcl_texcoord2 v2.xy
            dcl_texcoord3 v3.xyz
            dcl_2d s0
            nrm r0.xyz, v1
            nrm r1.xyz, v3
            mov r2.xyz, c20.x
            mov r3.xyz, c20.x

            // directional light
            mov r9.xyz, -c9
            nrm r4.xyz, r9
            mov r5.xyz, c10
            dp3 r6.x, r0, r4
            max r6.y, r6.x, c20.x
            mul_sat r6.z, r6.x, c7.x
            add r7.xyz, r4, r1
            nrm r8.xyz, r7
            dp3 r6.w, r0, r8
            max r6.w, r6.w, c20.x
            pow r7.x, r6.w, c5.x
            mul r7.x, r7.x, r6.z
            mad r2.xyz, r5, r6.y, r2
            mad r3.xyz, r5, r7.x, r3

            // spot light
            add r9.xyz, c11, -v0
            nrm r4.xyz, r9
            nrm r10.xyz, c12
            dp3 r10.w, -r4, r10
            sincos r11.x, c14.x
            sincos r12.x, c15.x
            add r11.y, r11.x, -r12.x
            rcp r11.y, r11.y
            add r11.z, r10.w, -r12.x
            mul_sat r11.z, r11.z, r11.y
            mad r11.w, r11.z, -c20.z, c20.w
            mul r11.w, r11.w, r11.z
            mul r11.w, r11.w, r11.z
            mul r5.xyz, c13, r11.w
            dp3 r6.x, r0, r4
            max r6.y, r6.x, c20.x
            mul_sat r6.z, r6.x, c7.x
            add r7.xyz, r4, r1
            nrm r8.xyz, r7
            dp3 r6.w, r0, r8
            max r6.w, r6.w, c20.x
            pow r7.x, r6.w, c5.x
            mul r7.x, r7.x, r6.z
            mad r2.xyz, r5, r6.y, r2
            mad r3.xyz, r5, r7.x, r3

            // point light
            add r9.xyz, c16, -v0
            dp3 r9.w, r9, r9
            rsq r10.x, r9.w
            mul r4.xyz, r9, r10.x
            mov r10.z, c20.y
            mad r10.y, r9.w, c8.x, r10.z
            rcp r10.y, r10.y
            mul r5.xyz, c17, r10.y
            dp3 r6.x, r0, r4
            max r6.y, r6.x, c20.x
            mul_sat r6.z, r6.x, c7.x
            add r7.xyz, r4, r1
            nrm r8.xyz, r7
            dp3 r6.w, r0, r8
            max r6.w, r6.w, c20.x
            pow r7.x, r6.w, c5.x
            mul r7.x, r7.x, r6.z
            mad r2.xyz, r5, r6.y, r2
            mad r3.xyz, r5, r7.x, r3

            // material
            if b0
                texld r13, v2, s0
            else
                mov r13, c20.y
            endif
            mov r14, c0
            mul r14.xyz, c1, r14.x
            mul r14.xyz, r14, r13
            mov r15, c2
            mul r15.xyz, c3, r15.x
            mul r15.xyz, r15, r13
            mad r14.xyz, r15, r2, r14
            mov r15, c4
            mul r15.xyz, c6, r15.x
            mad r14.xyz, r15, r3, r14
            mul r14.w, c3.w, r13.w
            mov oC0, r14
        };
    }
}
