// Skinned meshes: every vertex of a blended mesh takes up to three bone matrices (weights from the
// vertex, the last used bone gets what is left), is lit per vertex by one directional light with
// the material block, and is textured when hasTextureMap is set. An application loads the
// compiled file and hands it to MeshManagerD3DX9::setSkinEffect.

// Transformation block. World matrices come from the bones; matWorld* are declared for the block.
float4x4 matWorld;
column_major float4x4 matViewProjection : register(vs, c0);
float4x4 matWorldInverseTranspose;
float4x4 matViewInverse : register(vs, c4);  // row 3 is the eye position

// Vertex blend block: bone slot of each palette entry (-1 unused) and the palette.
column_major float4x4 blendMatrices[3] : register(vs, c8);
column_major float4x4 blendMatricesInverseTranspose[3] : register(vs, c20);
int blendIndices[3] : register(vs, c32);

// Light and material blocks.
float3 lightDirection : register(vs, c35) = { -1, -1, 1 };
float ambientCoeff : register(vs, c36) = 0.2;
float4 ambientColor : register(vs, c37) = { 1, 1, 1, 1 };
float diffuseCoeff : register(vs, c38) = 1.0;
float4 diffuseColor : register(vs, c39) = { 1, 1, 1, 1 };
float specularCoeff : register(vs, c40) = 0.4;
float specularPower : register(vs, c41) = 90.0;
float4 specularColor : register(vs, c42) = { 1, 1, 1, 1 };
float selfShadowPower = 5.0;

// Texture block.
bool hasTextureMap : register(ps, c0) = false;
bool hasNormalMap = false;
texture textureMap;
texture normalMap;
sampler2D textureSampler : register(s0) = sampler_state {
    Texture = <textureMap>;
    MinFilter = LINEAR;
    MagFilter = LINEAR;
    MipFilter = LINEAR;
};

technique SkinnedMesh
{
    pass Blend
    {
        ZEnable = TRUE;
        ZWriteEnable = TRUE;
        CullMode = NONE;
        VertexShader = asm {
            vs_2_0
            def c100, 0, 1, 0, 0
            dcl_position v0
            dcl_blendweight v1
            dcl_normal v2
            dcl_texcoord v3
            mov r15, c100
            // used slots u = (index >= 0); the last used slot l = u - u * u(next)
            mov r1, c32
            sge r0.x, r1.x, r15.x
            mov r1, c33
            sge r0.y, r1.x, r15.x
            mov r1, c34
            sge r0.z, r1.x, r15.x
            mov r2.x, r0.y
            mov r2.y, r0.z
            mov r2.z, r15.x
            mad r1.xyz, -r0, r2, r0
            // weights: the vertex's for used slots before the last, the rest for the last
            add r3.xyz, r0, -r1
            mul r3.xyz, r3, v1
            dp3 r4.x, r3, r15.y
            add r4.x, r15.y, -r4.x
            mad r3.xyz, r1, r4.x, r3
            // blended position and normal
            m4x4 r5, v0, c8
            m4x4 r6, v0, c12
            m4x4 r7, v0, c16
            mul r8, r5, r3.x
            mad r8, r6, r3.y, r8
            mad r8, r7, r3.z, r8
            m4x4 oPos, r8, c0
            m3x3 r5.xyz, v2, c20
            m3x3 r6.xyz, v2, c24
            m3x3 r7.xyz, v2, c28
            mul r9.xyz, r5, r3.x
            mad r9.xyz, r6, r3.y, r9
            mad r9.xyz, r7, r3.z, r9
            dp3 r9.w, r9, r9
            rsq r9.w, r9.w
            mul r9.xyz, r9, r9.w
            // towards the light, towards the eye, half vector
            mov r10, c35
            dp3 r10.w, r10, r10
            rsq r10.w, r10.w
            mul r10.xyz, -r10, r10.w
            add r11.xyz, c7, -r8
            dp3 r11.w, r11, r11
            rsq r11.w, r11.w
            mul r11.xyz, r11, r11.w
            add r11.xyz, r11, r10
            dp3 r11.w, r11, r11
            rsq r11.w, r11.w
            mul r11.xyz, r11, r11.w
            dp3 r12.x, r9, r10
            dp3 r12.y, r9, r11
            mov r12.w, c41.x
            lit r12, r12
            // diffuse colour x (ambient + diffuse light), specular added in the pixel shader
            mov r13, c37
            mul r13, r13, c36.x
            mov r14, c38
            mad r13, r14.x, r12.y, r13
            mul oD0.xyz, r13, c39
            mov oD0.w, c39.w
            mov r14, c40
            mul r14.x, r14.x, r12.z
            mul oD1, c42, r14.x
            mov oT0, v3
        };
        PixelShader = asm {
            ps_2_0
            def c1, 1, 1, 1, 1
            dcl t0.xy
            dcl v0
            dcl v1
            dcl_2d s0
            texld r0, t0, s0
            mov r1, c1
            add r0, r0, -r1
            mov r2, c0
            mad r0, r0, r2.x, r1
            mul r0, r0, v0
            add r0.xyz, r0, v1
            mov oC0, r0
        };
    }
}
