// Value types of the FBX scene model: time, vectors, affine matrices and
// Euler rotations in the six axis orders.
#pragma once

#include "foundation/tessel_types.h"

// ---------------------------------------------------------------------------
// Time: signed ticks, 46186158000 a second.

enum fbx_time_mode
{
    FbxTimeMode_Default = 0,
    FbxTimeMode_120 = 1,
    FbxTimeMode_100 = 2,
    FbxTimeMode_60 = 3,
    FbxTimeMode_50 = 4,
    FbxTimeMode_48 = 5,
    FbxTimeMode_30 = 6,
    FbxTimeMode_30DropFrame = 7,
    FbxTimeMode_NTSCDropFrame = 8,
    FbxTimeMode_NTSC = 9,
    FbxTimeMode_PAL = 10,
    FbxTimeMode_24 = 11,
    FbxTimeMode_1000 = 12,
    FbxTimeMode_Film = 13,
    FbxTimeMode_Custom = 14,
    FbxTimeMode_Count = 15,
};

class KTime
{
public:
    static int64 const TicksPerSecond = 46186158000LL;

    KTime() : mTime(0) {}
    explicit KTime(int64 Ticks) : mTime(Ticks) {}

    void Set(int64 Ticks) { mTime = Ticks; }
    int64 Get() const { return mTime; }
    void SetSecondDouble(real64 Seconds);
    real64 GetSecondDouble() const { return (real64)mTime / (real64)TicksPerSecond; }

    // Time code setter: Fields counts half frames in the modes whose time
    // code has fields (30, drop frame, NTSC, PAL, film, custom) and is
    // ignored in the others. Mode 0 is 30 frames a second; a scene's own
    // mode is in its global settings. The custom mode counts CustomFrameRate
    // frames a second, 30 when it is not positive.
    void SetTime(int32 Hours, int32 Minutes, int32 Seconds, int32 Frames = 0, int32 Fields = 0, int32 Residual = 0,
                 int32 TimeMode = 0, real64 CustomFrameRate = 0.0);
    // Frame count, truncated toward zero. Cumulative counts from time 0;
    // otherwise the frame within the current second.
    int64 GetFrame(bool Cumulative = true, int32 TimeMode = 0, real64 CustomFrameRate = 0.0) const;

    // Frames a second of a mode; 30 for mode 0 and for a mode outside the
    // table. The custom mode answers CustomFrameRate (30 when not positive).
    static real64 GetFrameRate(int32 TimeMode, real64 CustomFrameRate = 0.0);
    // Ticks of one frame in a mode (mode 13 answers the even frame length).
    static int64 GetTicksPerFrame(int32 TimeMode, real64 CustomFrameRate = 0.0);

    bool operator==(KTime const &Other) const { return mTime == Other.mTime; }
    bool operator!=(KTime const &Other) const { return mTime != Other.mTime; }
    bool operator<(KTime const &Other) const { return mTime < Other.mTime; }
    bool operator<=(KTime const &Other) const { return mTime <= Other.mTime; }
    bool operator>(KTime const &Other) const { return mTime > Other.mTime; }
    bool operator>=(KTime const &Other) const { return mTime >= Other.mTime; }
    KTime operator+(KTime const &Other) const { return KTime(mTime + Other.mTime); }
    KTime operator-(KTime const &Other) const { return KTime(mTime - Other.mTime); }

private:
    int64 mTime;
};

class KTimeSpan
{
public:
    KTimeSpan() {}
    KTimeSpan(KTime Start, KTime Stop) : mStart(Start), mStop(Stop) {}
    void Set(KTime Start, KTime Stop)
    {
        mStart = Start;
        mStop = Stop;
    }
    KTime GetStart() const { return mStart; }
    KTime GetStop() const { return mStop; }
    void SetStart(KTime Start) { mStart = Start; }
    void SetStop(KTime Stop) { mStop = Stop; }
    KTime GetDuration() const { return mStop - mStart; }

private:
    KTime mStart;
    KTime mStop;
};

// ---------------------------------------------------------------------------
// Vectors.

class KFbxVector4
{
public:
    KFbxVector4() : mData{0.0, 0.0, 0.0, 0.0} {}
    KFbxVector4(real64 X, real64 Y, real64 Z, real64 W = 0.0) : mData{X, Y, Z, W} {}
    real64 &operator[](int32 Index) { return mData[Index]; }
    real64 const &operator[](int32 Index) const { return mData[Index]; }
    void Set(real64 X, real64 Y, real64 Z, real64 W = 0.0)
    {
        mData[0] = X;
        mData[1] = Y;
        mData[2] = Z;
        mData[3] = W;
    }
    bool operator==(KFbxVector4 const &Other) const
    {
        return mData[0] == Other.mData[0] && mData[1] == Other.mData[1] && mData[2] == Other.mData[2] &&
               mData[3] == Other.mData[3];
    }
    KFbxVector4 operator+(KFbxVector4 const &Other) const
    {
        return KFbxVector4(mData[0] + Other[0], mData[1] + Other[1], mData[2] + Other[2], mData[3] + Other[3]);
    }
    KFbxVector4 operator-(KFbxVector4 const &Other) const
    {
        return KFbxVector4(mData[0] - Other[0], mData[1] - Other[1], mData[2] - Other[2], mData[3] - Other[3]);
    }

    real64 mData[4];
};

class KFbxVector2
{
public:
    KFbxVector2() : mData{0.0, 0.0} {}
    KFbxVector2(real64 U, real64 V) : mData{U, V} {}
    real64 &operator[](int32 Index) { return mData[Index]; }
    real64 const &operator[](int32 Index) const { return mData[Index]; }
    bool operator==(KFbxVector2 const &Other) const { return mData[0] == Other.mData[0] && mData[1] == Other.mData[1]; }

    real64 mData[2];
};

class KFbxColor
{
public:
    KFbxColor() : mRed(0.0), mGreen(0.0), mBlue(0.0), mAlpha(1.0) {}
    KFbxColor(real64 Red, real64 Green, real64 Blue, real64 Alpha = 1.0)
        : mRed(Red), mGreen(Green), mBlue(Blue), mAlpha(Alpha)
    {}
    bool operator==(KFbxColor const &Other) const
    {
        return mRed == Other.mRed && mGreen == Other.mGreen && mBlue == Other.mBlue && mAlpha == Other.mAlpha;
    }

    real64 mRed;
    real64 mGreen;
    real64 mBlue;
    real64 mAlpha;
};

class KFbxQuaternion
{
public:
    KFbxQuaternion() : mData{0.0, 0.0, 0.0, 1.0} {}
    KFbxQuaternion(real64 X, real64 Y, real64 Z, real64 W) : mData{X, Y, Z, W} {}
    real64 &operator[](int32 Index) { return mData[Index]; }
    real64 const &operator[](int32 Index) const { return mData[Index]; }

    real64 mData[4]; // x, y, z, w
};

// ---------------------------------------------------------------------------
// Affine matrices. Row i is the image of axis i, row 3 the translation: a
// point maps to x row0 + y row1 + z row2 + row3. A * B applies B first.

class AffineMatrix
{
public:
    AffineMatrix() { SetIdentity(); }
    // From translation, Euler XYZ rotation in degrees and scale.
    AffineMatrix(KFbxVector4 const &T, KFbxVector4 const &R, KFbxVector4 const &S) { SetTRS(T, R, S); }

    void SetIdentity();
    void SetTRS(KFbxVector4 const &T, KFbxVector4 const &R, KFbxVector4 const &S);
    void SetT(KFbxVector4 const &T);
    void SetR(KFbxVector4 const &R); // rotation part only, Euler XYZ degrees
    void SetQ(KFbxQuaternion const &Q);

    KFbxVector4 GetT() const;
    KFbxVector4 GetR() const; // Euler XYZ degrees of the normalised rotation
    KFbxVector4 GetS() const; // row lengths; negative when the matrix mirrors
    KFbxQuaternion GetQ() const;
    KFbxVector4 GetTranslation() const { return GetT(); }
    KFbxVector4 GetRotation() const { return GetR(); }
    KFbxVector4 GetScaling() const { return GetS(); }
    KFbxQuaternion GetQuaternion() const { return GetQ(); }

    KFbxVector4 GetRow(int32 Row) const
    {
        return KFbxVector4(mData[Row][0], mData[Row][1], mData[Row][2], mData[Row][3]);
    }
    void SetRow(int32 Row, KFbxVector4 const &Value)
    {
        for (int32 Column = 0; Column < 4; ++Column) mData[Row][Column] = Value[Column];
    }
    real64 Get(int32 Row, int32 Column) const { return mData[Row][Column]; }
    real64 &operator()(int32 Row, int32 Column) { return mData[Row][Column]; }
    real64 operator()(int32 Row, int32 Column) const { return mData[Row][Column]; }

    AffineMatrix Inverse() const;
    AffineMatrix Transpose() const;
    real64 Determinant3() const;

    AffineMatrix operator*(AffineMatrix const &Other) const;
    AffineMatrix operator*(real64 Factor) const;
    // Maps a point (w ignored, result w = 1).
    KFbxVector4 MultT(KFbxVector4 const &Point) const;
    // Maps a direction: the upper 3x3 only.
    KFbxVector4 MultR(KFbxVector4 const &Direction) const;
    bool operator==(AffineMatrix const &Other) const;

    real64 mData[4][4];
};

// Euler rotation orders as stored in RotationOrder.
enum fbx_rotation_order
{
    FbxRotationOrder_XYZ = 0,
    FbxRotationOrder_XZY = 1,
    FbxRotationOrder_YZX = 2,
    FbxRotationOrder_YXZ = 3,
    FbxRotationOrder_ZXY = 4,
    FbxRotationOrder_ZYX = 5,
    FbxRotationOrder_SphericXYZ = 6,
};

// The rotation matrix of Euler angles in degrees; the first axis of the
// order's name turns first. Spheric XYZ builds the same rotation as XYZ.
AffineMatrix EulerToMatrix(KFbxVector4 const &Degrees, int32 Order = FbxRotationOrder_XYZ);
// Euler angles in degrees of the rotation part (rows normalised first).
KFbxVector4 MatrixToEuler(AffineMatrix const &Matrix, int32 Order = FbxRotationOrder_XYZ);

AffineMatrix QuaternionToMatrix(KFbxQuaternion const &Q);
KFbxQuaternion MatrixToQuaternion(AffineMatrix const &Matrix);
KFbxQuaternion QuaternionSlerp(KFbxQuaternion const &A, KFbxQuaternion const &B, real64 Fraction);

// Splits an affine matrix for a transform that applies scale/shear, then
// rotation, then translation: Position (3 values), Orientation (x, y, z, w,
// unit length with w >= 0) and ScaleShear (3x3 row by row, for column
// vectors), so that the column-vector linear part is R(Orientation) x
// ScaleShear. The rotation is that of the polar decomposition and ScaleShear
// is symmetric; a mirroring matrix keeps its negative determinant in
// ScaleShear. A singular linear part falls back to orthonormalised axes.
void SplitAffineMatrix(AffineMatrix const &Matrix, real64 *Position, real64 *Orientation, real64 *ScaleShear);
